// Text and tables for people, together.
#pragma once

#include "base/printable.h"
#include "base/text_table.h"
