/* Searches the LAN for devices for a few seconds, prints each one as it answers, then the
 * table of everything found.
 *
 *   usage: discover [SECONDS]   (default 3)
 *
 * The search broadcasts on every interface of this host and repeats until stopped. The
 * discovery callback runs on the library's discovery thread: once per new device (code 1)
 * and whenever a known device's answer changes (code 2); the record it hands over is valid
 * during the call only. The table keeps every device found, also after the search stops. */
#define _POSIX_C_SOURCE 200809L /* nanosleep */
#include <QXNetSDK.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

/* One device on one line: slot, UID, address, hardware type, model, firmware. */
static void print_device(const char* what, long index, const __NetSDK_IPC_ENTRYV2* e) {
  printf("%-7s %3ld  %-20.32s %-15.256s %-10.128s %-16.128s %.64s\n", what, index, e->szUID,
         e->lanCfg.szIP, e->szHardwareType, e->szProductModel, e->szFirmwareVersion);
}

static long on_search(long code, long index, __NetSDK_IPC_ENTRYV2* entry, void* user) {
  (void)user;
  if (entry && code == QXNET_SEARCH_NEW_DEVICE) print_device("found", index, entry);
  if (entry && code == QXNET_SEARCH_DEVICE_CHANGED) print_device("changed", index, entry);
  fflush(stdout);
  return 0;
}

int main(int argc, char** argv) {
  int seconds = argc == 2 ? atoi(argv[1]) : 3;
  if (argc > 2 || seconds <= 0) {
    fprintf(stderr, "usage: discover [SECONDS]\n");
    return 2;
  }
  static int token; /* handed back to the callback; unused here */
  QXNet_init();
  QXNet_Loc_SetSearchStatusCallBack(on_search, &token);
  long rc = QXNet_Loc_StartSearchIPC();
  if (rc != QXNET_OK) {
    fprintf(stderr, "discover: the search did not start (%ld)\n", rc);
    QXNet_Free();
    return 1;
  }
  struct timespec pause = {seconds, 0};
  while (nanosleep(&pause, &pause) != 0) {
  }
  QXNet_Loc_StopSearchIPC();

  long count = QXNet_Loc_GetSearchIPCCount();
  printf("%ld device(s) found\n", count);
  for (long i = 0; i < count; ++i) {
    static __NetSDK_IPC_ENTRYV2 entry; /* 4784 bytes: kept off the stack */
    if (QXNet_Loc_GetIPCInfo(i, &entry) == QXNET_OK) print_device("device", i, &entry);
  }
  QXNet_Free();
  return 0;
}
