/* Lists one day's recordings of a recorder's channel and downloads the first seconds of
 * the first one into an MP4 file.
 *
 *   usage: recorder HOST PORT USER PASS CHANNEL DAY SECONDS FILE   (DAY: YYYYMMDD)
 *
 * The record list is the answer to a search (auxiliary response, command 14300) with the
 * day's spans as "hhmmss-hhmmss,..." in its <Stream> element. The download reports through
 * status events on the session's thread: accepted (52) or refused (53), progress (55, text
 * <RESPONSE_PARAM DownloadPos="N" />, 100 once the file is complete and closed), stopped (54). */
#define _POSIX_C_SOURCE 200809L /* clock_gettime */
#include <QXNetSDK.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define CMD_RECORD_SEARCH 14300ul /* the record list answer */
static pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t cv = PTHREAD_COND_INITIALIZER;
static int logged_in;          /* 1 logged in, -1 refused */
static int list_flag = 1;      /* the search answer's result; 1 while none came */
static char spans[4096];       /* the <Stream> text of the answer */
static int percent = -1;       /* newest download progress */
static long ended;             /* the event that ended the download, 0 while it runs */

static long on_status(long login, long code, char* data, void* user) {
  (void)login, (void)user;
  pthread_mutex_lock(&mu);
  if (code == QXNET_EV_AUTHENTICATED) logged_in = 1;
  if (code == QXNET_EV_BAD_CREDENTIALS || code == QXNET_EV_AUTH_FAILED) logged_in = -1;
  const char* pos = data ? strstr(data, "DownloadPos=\"") : NULL;
  if (code == QXNET_EV_DOWNLOAD_PROGRESS && pos) {
    int p = atoi(pos + strlen("DownloadPos=\""));
    if (p != percent) printf("download: %d%%\n", p);
    percent = p;
    if (p >= 100 && !ended) ended = code;
  }
  if ((code == QXNET_EV_DOWNLOAD_REFUSED || code == QXNET_EV_DOWNLOAD_STOPPED ||
       code == QXNET_EV_SOCKET_ERROR) && !ended)
    ended = code;
  pthread_cond_signal(&cv);
  pthread_mutex_unlock(&mu);
  return 0;
}

/* The record list: command in the low 24 bits of the code, the device's result in the top
 * byte. The body is valid during the call only: the spans are copied out. */
static long on_answer(long login, long code, char* data, void* user) {
  (void)login, (void)user;
  if (((unsigned long)code & 0xFFFFFFul) != CMD_RECORD_SEARCH) return 0;
  pthread_mutex_lock(&mu);
  const char* a = data ? strstr(data, "<Stream>") : NULL;
  const char* b = a ? strstr(a, "</Stream>") : NULL;
  int n = b ? (int)(b - a - 8) : 0;
  snprintf(spans, sizeof spans, "%.*s", n < (int)sizeof spans ? n : (int)sizeof spans - 1, a ? a + 8 : "");
  list_flag = (signed char)(((unsigned long)code >> 24) & 0xFF);
  pthread_cond_signal(&cv);
  pthread_mutex_unlock(&mu);
  return 0;
}

static int have_login(void) { return logged_in != 0; }
static int have_list(void) { return list_flag != 1; }
static int have_end(void) { return ended != 0; }

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

static int seconds_of(const char* hhmmss) {
  int t = atoi(hhmmss);
  return t / 10000 * 3600 + t / 100 % 100 * 60 + t % 100;
}

/* Prints the day's spans; returns the number of them and the first one in *from, *to. */
static int print_spans(int* from, int* to) {
  int count = 0;
  for (const char* p = spans; strlen(p) >= 13 && p[6] == '-'; p += 14, ++count) {
    printf("span %.2s:%.2s:%.2s - %.2s:%.2s:%.2s\n", p, p + 2, p + 4, p + 7, p + 9, p + 11);
    if (count == 0) *from = seconds_of(p), *to = seconds_of(p + 7);
    if (p[13] != ',') return count + 1;
  }
  return count;
}

/* Downloads DAY from..from+seconds (cut to the span) into path; 0 when the file is whole. */
static int download(long id, long channel, const char* day, int from, int to, int seconds, char* path) {
  char start[32], end[32];
  if (from + seconds < to) to = from + seconds;
  snprintf(start, sizeof start, "%.8s%02d%02d%02d", day, from / 3600, from / 60 % 60, from % 60);
  snprintf(end, sizeof end, "%.8s%02d%02d%02d", day, to / 3600, to / 60 % 60, to % 60);
  printf("downloading %s..%s into %s\n", start, end, path);
  long rc = QXNet_Loc_NVRRecordDownload(id, channel, start, end, path);
  if (rc != QXNET_OK) {
    fprintf(stderr, "recorder: download refused by the library (%ld)\n", rc);
    return 1;
  }
  if (!wait_until(have_end, 30 + 2 * seconds)) {
    fprintf(stderr, "recorder: the download did not end in time\n");
    QXNet_Loc_NVRRecordDownloadStop(id, channel);
    return 1;
  }
  /* 100%, or stopped when the recorder has nothing more of the span: the file is closed. */
  int ok = ended == QXNET_EV_DOWNLOAD_PROGRESS || ended == QXNET_EV_DOWNLOAD_STOPPED;
  if (!ok) fprintf(stderr, "recorder: download ended by event %ld\n", ended);
  return !ok;
}

int main(int argc, char** argv) {
  if (argc != 9 || strlen(argv[6]) != 8) {
    fprintf(stderr, "usage: recorder HOST PORT USER PASS CHANNEL DAY SECONDS FILE\n");
    return 2;
  }
  long channel = atol(argv[5]);
  char when[16];
  snprintf(when, sizeof when, "%.8s000000", argv[6]);
  static int token;
  QXNet_init();
  QXNet_SetStatusEventCallBack(on_status, &token);
  QXNet_SetAuxResponseCallBack(on_answer, &token);
  long id = QXNet_Loc_LoginDev(argv[1], strtoul(argv[2], NULL, 10), argv[3], argv[4], NULL);
  int rc = 1, from = 0, to = 0;
  if (id <= 0 || !wait_until(have_login, 10) || logged_in != 1) {
    fprintf(stderr, "recorder: login failed\n");
  } else if (QXNet_Loc_SearchNVRRecByTime(id, channel, when) != QXNET_OK || !wait_until(have_list, 10)) {
    fprintf(stderr, "recorder: no record list\n");
  } else if (list_flag < 0) {
    fprintf(stderr, "recorder: the recorder refused the search (%d)\n", list_flag);
  } else if (print_spans(&from, &to) == 0) {
    printf("no recordings on %s\n", argv[6]);
  } else {
    rc = download(id, channel, argv[6], from, to, atoi(argv[7]), argv[8]);
    if (rc == 0) printf("saved %s\n", argv[8]);
  }
  if (id > 0) QXNet_LogOutDev(id);
  QXNet_Free();
  return rc;
}
