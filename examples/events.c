/* Logs in to a device and prints its status events and alarms until Ctrl-C or, when
 * given, SECONDS have passed.
 *
 *   usage: events HOST PORT USER PASS [SECONDS]
 *
 * Callbacks run on the library's thread of the device's session: this one only prints
 * and copies nothing it keeps, since the data pointers are valid during the call only. */
#define _POSIX_C_SOURCE 200809L /* nanosleep */
#include <QXNetSDK.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static volatile sig_atomic_t stop;

static void on_signal(int sig) {
  (void)sig;
  stop = 1;
}

static const char* event_name(long code) {
  switch (code) {
    case QXNET_EV_CONNECT_FAILED: return "connect failed";
    case QXNET_EV_SOCKET_ERROR: return "connection lost";
    case QXNET_EV_BAD_CREDENTIALS: return "bad user name or password";
    case QXNET_EV_AUTH_FAILED: return "authentication failed";
    case QXNET_EV_CONNECTED: return "connected";
    case QXNET_EV_AUTHENTICATED: return "logged in";
    case QXNET_EV_MAX_CHANNELS: return "channels";
    case QXNET_EV_IPC_STATUS: return "camera status";
    case QXNET_EV_MESSAGE: return "device message";
    default: return "event";
  }
}

/* Prints text on one line: event texts often end in a line break. */
static void print_line(const char* text) {
  for (const char* p = text ? text : ""; *p; ++p) putchar(*p == '\n' || *p == '\r' ? ' ' : *p);
  putchar('\n');
}

static long on_status(long login, long code, char* data, void* user) {
  (void)login, (void)user;
  if (code == QXNET_EV_ALARM) {
    /* Event 24 hands over one alarm record, not text. */
    const ALARM_ITEM* a = (const ALARM_ITEM*)data;
    printf("alarm: %04d-%02d-%02d %02d:%02d:%02d code=%d flag=%d level=%d data=\"%s\"\n",
           a->nYear, a->nMonth, a->nDay, a->nHour, a->nMinute, a->nSecond, a->nAlarmCode,
           a->nAlarmFlag, a->nAlarmLevel, a->szAlarmData);
  } else if (code == QXNET_EV_MESSAGE && data && strstr(data, "ALARM_REPORT_PARAM")) {
    /* Alarm reports of most devices arrive as device messages: the report's XML. */
    printf("alarm report: ");
    print_line(data);
  } else {
    printf("event %ld (%s): ", code, event_name(code));
    print_line(data);
  }
  fflush(stdout);
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 5 || argc > 6) {
    fprintf(stderr, "usage: events HOST PORT USER PASS [SECONDS]\n");
    return 2;
  }
  int seconds = argc == 6 ? atoi(argv[5]) : -1;
  signal(SIGINT, on_signal);
  signal(SIGTERM, on_signal);

  static int token; /* any address: the key under which our callback is registered */
  QXNet_init();
  QXNet_SetStatusEventCallBack(on_status, &token);
  long id = QXNet_LoginDev(argv[1], strtoul(argv[2], NULL, 10), argv[3], argv[4], 0);
  if (id <= 0) {
    fprintf(stderr, "events: login refused by the library (%ld)\n", id);
    QXNet_Free();
    return 1;
  }
  /* The session reconnects by itself after a drop; events report each step. */
  for (int waited = 0; !stop && (seconds < 0 || waited < seconds * 10); ++waited) {
    struct timespec tenth = {0, 100000000};
    nanosleep(&tenth, NULL);
  }

  QXNet_LogOutDev(id);
  QXNet_Free();
  return 0;
}
