// Discovery's diagnostics. Like the rest of the older log family they are dropped in a
// normal build (nothing is even formatted); a hook, set by tests and tools, receives every
// line whole.
#ifndef QXNET_SEARCH_SEARCHLOG_H
#define QXNET_SEARCH_SEARCHLOG_H

typedef void (*SearchLogHook)(int level, const char* line);

void SetSearchLogHook(SearchLogHook hook);
void SearchLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
