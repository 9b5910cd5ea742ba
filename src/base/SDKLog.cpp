#include "base/SDKLog.h"

// This family has no output: its lines would be dropped once built, so nothing is built
// (the receive path logs through it on every message, media packs included).
void mlogLevel(int /*level*/, const char* /*format*/, ...) {}

void mlog(const char* /*format*/, ...) {}

int mlogInit(char*) { return 0; }
int mlogClose() { return 0; }
