// A library that the daemon cannot find.

extern "C" int paddockTestAbsent() { return 1; }
