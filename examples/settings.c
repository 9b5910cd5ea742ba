/* Changes one setting of a device and reads it back.
 *
 *   usage: settings HOST PORT USER PASS COMMAND BODY
 *   e.g.   settings 192.0.2.10 8000 admin secret 1601 '<VideoEncode><BitRate>2048</BitRate></VideoEncode>'
 *
 * Requests return as soon as they are queued; the device's answer arrives through the
 * auxiliary response callback, on the session's thread: the callback copies it and wakes
 * the main thread. Exit 0 when the setting reads back as written. */
#define _POSIX_C_SOURCE 200809L /* clock_gettime, nanosleep */
#include <QXNetSDK.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t cv = PTHREAD_COND_INITIALIZER;
static int logged_in;              /* 1 logged in, -1 refused */
static unsigned long answer_cmd;   /* command of the newest answer (0: none yet) */
static int answer_flag;            /* its result: negative when the device refused */
static char answer_body[8192];

static long on_status(long login, long code, char* data, void* user) {
  (void)login, (void)data, (void)user;
  pthread_mutex_lock(&mu);
  if (code == QXNET_EV_AUTHENTICATED) logged_in = 1;
  if (code == QXNET_EV_BAD_CREDENTIALS || code == QXNET_EV_AUTH_FAILED) logged_in = -1;
  pthread_cond_signal(&cv);
  pthread_mutex_unlock(&mu);
  return 0;
}

/* The answer's code is the command in the low 24 bits and the device's result in the top
 * byte. The body is only valid during the call: copy it. */
static long on_answer(long login, long code, char* data, void* user) {
  (void)login, (void)user;
  pthread_mutex_lock(&mu);
  answer_cmd = (unsigned long)code & 0xFFFFFFul;
  answer_flag = (signed char)(((unsigned long)code >> 24) & 0xFF);
  snprintf(answer_body, sizeof answer_body, "%s", data ? data : "");
  pthread_cond_signal(&cv);
  pthread_mutex_unlock(&mu);
  return 0;
}

static int have_login(void) { return logged_in != 0; }
static int have_answer(void) { return answer_cmd != 0; }

/* Waits, at most `seconds`, until done() holds; returns whether it does. */
static int wait_until(int (*done)(void), int seconds) {
  struct timespec end;
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += seconds;
  pthread_mutex_lock(&mu);
  while (!done() && pthread_cond_timedwait(&cv, &mu, &end) == 0) {
  }
  int ok = done();
  pthread_mutex_unlock(&mu);
  return ok;
}

/* Waits for the answer to the request just queued (rc: the call's result); 0 when the
 * device accepted it. */
static int request(long rc, unsigned long cmd, const char* what) {
  if (rc != QXNET_OK) {
    fprintf(stderr, "settings: %s refused by the library (%ld)\n", what, rc);
    return -1;
  }
  if (!wait_until(have_answer, 10) || answer_cmd != cmd) {
    fprintf(stderr, "settings: no answer to %s\n", what);
    return -1;
  }
  if (answer_flag < 0) {
    fprintf(stderr, "settings: the device refused %s (%d)\n", what, answer_flag);
    return -1;
  }
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 7) {
    fprintf(stderr, "usage: settings HOST PORT USER PASS COMMAND BODY\n");
    return 2;
  }
  unsigned long cmd = strtoul(argv[5], NULL, 10);
  static int token;
  QXNet_init();
  QXNet_SetStatusEventCallBack(on_status, &token);
  QXNet_SetAuxResponseCallBack(on_answer, &token);
  long id = QXNet_LoginDev(argv[1], strtoul(argv[2], NULL, 10), argv[3], argv[4], 0);
  int rc = 1;
  if (id <= 0 || !wait_until(have_login, 10) || logged_in != 1) {
    fprintf(stderr, "settings: login failed\n");
  } else if (request(QXNet_SetDevConfig(id, cmd, argv[6]), cmd, "the write") == 0) {
    pthread_mutex_lock(&mu);
    answer_cmd = 0; /* the next answer is the read's */
    pthread_mutex_unlock(&mu);
    if (request(QXNet_GetDevConfig(id, cmd), cmd, "the read") == 0) {
      printf("setting %lu now reads: %s\n", cmd, answer_body + strspn(answer_body, " \r\n\t"));
      rc = strstr(answer_body, argv[6]) ? 0 : 1;
      if (rc) fprintf(stderr, "settings: the value read back differs\n");
    }
  }
  if (id > 0) QXNet_LogOutDev(id);
  QXNet_Free();
  return rc;
}
