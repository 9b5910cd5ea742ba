// The older log family: lines are formatted in full and then dropped. Kept because
// most of the core, the sessions and discovery log through it.
#ifndef QXNET_BASE_SDKLOG_H
#define QXNET_BASE_SDKLOG_H

void mlogLevel(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void mlog(const char* format, ...) __attribute__((format(printf, 1, 2)));
int mlogInit(char* path);
int mlogClose();

#endif
