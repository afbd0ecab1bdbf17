#include "EmptyCall.h"

void EmptyCall(int, const char*, int, const char*, const char*, ...) {}
