# Makes the source SOURCE of a C function FUNCTION that returns what the file TEXT holds, ended with a zero
# byte. Bytes instead of a literal, because compilers need not take long ones.
file(READ "${TEXT}" bytes HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
file(WRITE "${SOURCE}" "namespace {
const unsigned char kText[] = {${bytes}0};
}
extern \"C\" __attribute__((visibility(\"default\"))) const char* ${FUNCTION}() noexcept;
const char* ${FUNCTION}() noexcept { return reinterpret_cast<const char*>(kText); }
")
