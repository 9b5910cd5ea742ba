/* A program built against the installed library only: logs in to a device and waits until
 * the device accepts the login. Exit 0 when it does and the library reports the expected
 * version; 1 when the device refuses or does not answer; 2 for bad arguments.
 * usage: consumer HOST PORT USER PASS EXPECTED_VERSION */
#define _POSIX_C_SOURCE 200809L /* clock_gettime, nanosleep */
#include <QXNetSDK.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t cv = PTHREAD_COND_INITIALIZER;
static long outcome = -1; /* first event that settles the login */

static long on_status(long login, long code, char* data, void* user) {
  (void)login, (void)data, (void)user;
  if (code == QXNET_EV_AUTHENTICATED || code == QXNET_EV_BAD_CREDENTIALS ||
      code == QXNET_EV_AUTH_FAILED || code == QXNET_EV_CONNECT_FAILED) {
    pthread_mutex_lock(&mu);
    if (outcome < 0) outcome = code;
    pthread_cond_signal(&cv);
    pthread_mutex_unlock(&mu);
  }
  return 0;
}

static long wait_outcome(int seconds) {
  struct timespec end;
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += seconds;
  pthread_mutex_lock(&mu);
  while (outcome < 0 && pthread_cond_timedwait(&cv, &mu, &end) == 0) {
  }
  long got = outcome;
  pthread_mutex_unlock(&mu);
  return got;
}

int main(int argc, char** argv) {
  if (argc != 6) {
    fprintf(stderr, "usage: consumer HOST PORT USER PASS EXPECTED_VERSION\n");
    return 2;
  }
  if (strcmp(QXNet_GetSdkVersion(), argv[5]) != 0) {
    fprintf(stderr, "consumer: library version %s, expected %s\n", QXNet_GetSdkVersion(), argv[5]);
    return 1;
  }
  static int token;
  QXNet_init();
  QXNet_SetAutoReconnect(0);
  QXNet_SetStatusEventCallBack(on_status, &token);
  long id = QXNet_LoginDev(argv[1], strtoul(argv[2], NULL, 10), argv[3], argv[4], 0);
  long got = id > 0 ? wait_outcome(10) : -1;
  if (id > 0) QXNet_LogOutDev(id);
  QXNet_Free();
  if (got != QXNET_EV_AUTHENTICATED) {
    fprintf(stderr, "consumer: login %ld did not succeed (event %ld)\n", id, got);
    return 1;
  }
  printf("consumer: logged in, library %s\n", QXNet_GetSdkVersion());
  return 0;
}
