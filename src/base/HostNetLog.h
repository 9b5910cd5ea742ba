// Diagnostics of the host facts and the free-address probe. They belong to discovery's
// log family, which formats and drops; a test may route the formatted lines to itself.
#ifndef QXNET_BASE_HOSTNETLOG_H
#define QXNET_BASE_HOSTNETLOG_H

typedef void (*HostNetLogHook)(int level, const char* line);

// Null (the default): lines go to mlogLevel. Not thread-safe to change while logging.
void SetHostNetLogHook(HostNetLogHook hook);

void HostNetLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
