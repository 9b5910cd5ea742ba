/* Uploads a firmware file to a device and shows the progress.
 *
 *   usage: upgrade HOST PORT USER PASS FIRMWARE_FILE
 *
 * QXNet_Loc_Upgrade returns once the upload is started; its course arrives as status
 * events on the session's thread: progress (58, text with start="..." filesize="..."),
 * then finished (15) or failed (16, or 81 for a chunk the connection lost). */
#define _POSIX_C_SOURCE 200809L /* clock_gettime, nanosleep */
#include <QXNetSDK.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t cv = PTHREAD_COND_INITIALIZER;
static int logged_in;   /* 1 logged in, -1 refused */
static int percent;     /* of the file sent */
static long outcome;    /* the event that ended the upload, 0 while it runs */

/* The value of attribute `name` in an event text, or -1. */
static double attribute(const char* text, const char* name) {
  char key[32];
  snprintf(key, sizeof key, "%s=\"", name);
  const char* p = text ? strstr(text, key) : NULL;
  return p ? atof(p + strlen(key)) : -1;
}

static long on_status(long login, long code, char* data, void* user) {
  (void)login, (void)user;
  pthread_mutex_lock(&mu);
  if (code == QXNET_EV_AUTHENTICATED) logged_in = 1;
  if (code == QXNET_EV_BAD_CREDENTIALS || code == QXNET_EV_AUTH_FAILED) logged_in = -1;
  if (code == QXNET_EV_UPGRADE_PROGRESS) {
    double start = attribute(data, "start"), size = attribute(data, "filesize");
    if (size > 0) percent = (int)(100.0 * start / size);
  }
  if (code == QXNET_EV_UPGRADE_FINISHED || code == QXNET_EV_UPGRADE_FAILED ||
      code == QXNET_EV_CFGFILE_SET_FAILED || code == QXNET_EV_SOCKET_ERROR) {
    if (outcome == 0) outcome = code;
  }
  pthread_cond_signal(&cv);
  pthread_mutex_unlock(&mu);
  return 0;
}

/* Waits up to a second for news; returns the outcome so far and the percent in *pct. */
static long wait_news(int* pct) {
  struct timespec end;
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += 1;
  pthread_mutex_lock(&mu);
  if (outcome == 0 && *pct == percent) pthread_cond_timedwait(&cv, &mu, &end);
  *pct = percent;
  long o = outcome;
  pthread_mutex_unlock(&mu);
  return o;
}

static int login_settled(void) {
  pthread_mutex_lock(&mu);
  int v = logged_in;
  pthread_mutex_unlock(&mu);
  return v;
}

/* Follows the running upload for at most `seconds`; 0 when the device has it all. */
static int follow_upload(int seconds) {
  int shown = -1, pct = 0;
  for (time_t end = time(NULL) + seconds; time(NULL) < end;) {
    long o = wait_news(&pct);
    if (pct != shown) printf("\rupgrade: %3d%%", shown = pct);
    fflush(stdout);
    if (o == QXNET_EV_UPGRADE_FINISHED) {
      printf("\rupgrade: 100%%\nupgrade: finished\n");
      return 0;
    }
    if (o != 0) {
      printf("\nupgrade: failed (event %ld)\n", o);
      return 1;
    }
  }
  printf("\nupgrade: no end within %d s\n", seconds);
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 6) {
    fprintf(stderr, "usage: upgrade HOST PORT USER PASS FIRMWARE_FILE\n");
    return 2;
  }
  static int token;
  QXNet_init();
  QXNet_SetStatusEventCallBack(on_status, &token);
  long id = QXNet_LoginDev(argv[1], strtoul(argv[2], NULL, 10), argv[3], argv[4], 0);
  int rc = 1;
  for (int i = 0; id > 0 && i < 100 && login_settled() == 0; ++i) {
    struct timespec t = {0, 100000000};
    nanosleep(&t, NULL);
  }
  if (id <= 0 || login_settled() != 1) {
    fprintf(stderr, "upgrade: login failed\n");
  } else {
    long started = QXNet_Loc_Upgrade(id, argv[5]);
    if (started == QXNET_E_FILE)
      fprintf(stderr, "upgrade: %s is missing or not readable and writable\n", argv[5]);
    else if (started == QXNET_E_BUSY)
      fprintf(stderr, "upgrade: another transfer runs on this session\n");
    else if (started != QXNET_OK)
      fprintf(stderr, "upgrade: refused by the library (%ld)\n", started);
    else
      rc = follow_upload(600);
  }
  if (id > 0) QXNet_LogOutDev(id);
  QXNet_Free();
  return rc;
}
