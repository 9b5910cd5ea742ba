/* Functions of the C translation unit, called by the C++ side of the header test. */
#ifndef QXNET_TESTS_SDK_HEADER_C99_H
#define QXNET_TESTS_SDK_HEADER_C99_H

#include <stddef.h>

#include "QXNetSDK.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QXNET_C_LAYOUT_COUNT 29

/* Sizes and offsets as the C compiler sees them, in the order of the C file's table. */
size_t qxnet_c_layout(size_t index);
/* Number of exports the C file takes by type. */
int qxnet_c_export_count(void);
const char* qxnet_c_version(void);
long qxnet_c_start_search(void);
/* init, register a session (no connection), log it out twice, free: 0 when all is as
 * documented, else a negative step number. */
long qxnet_c_init_login_logout(void);
void* qxnet_c_frame_user(const FRAME_EXTDATA* ext);

#ifdef __cplusplus
}
#endif

#endif
