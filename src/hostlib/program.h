// runProgram with another time limit than the public one.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "paddock/run_program.h"

namespace paddock {

ProgramResult runProgramWithin(const std::string& path, const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit);

}  // namespace paddock
