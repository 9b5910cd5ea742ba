// What qxnet's device commands wait for: the session's status events and answers, recorded by
// the library's callbacks (and printed when events are not quiet).
#pragma once

#include <atomic>
#include <string>
#include <vector>

extern std::atomic<bool> g_stop;  // Ctrl-C or SIGTERM

// Seconds of a monotonic clock.
double Now();
// Installs the status and answer callbacks; `quiet`: record only, print nothing.
void InstallSessionCallbacks(bool quiet);
// Whether the session reported "authenticated" so far.
bool SawAuthenticated();

// Waits for a status event whose code is in `codes`, from event index `from`. Returns its index,
// -1 on timeout or interruption, -2 when the connection failed or dropped first. The timeout
// counts from the call or from the library's last status event, whichever is later, so a long
// transfer that keeps reporting the same progress does not time out. A progress event that
// repeats the one before it is not recorded again.
int WaitEvent(const std::vector<long>& codes, size_t from, double timeout, long* code, std::string* text,
              size_t* next);

enum class AnswerWait { kAnswered, kTimedOut, kDropped };
// Waits for an answer whose command (low 24 bits of the code) is `cmd`.
AnswerWait WaitAnswer(unsigned long cmd, double timeout, long* code, std::string* body);
// Forgets the answers seen, so the next wait sees only new ones.
void ClearAnswers();
// The answer's result flag: the code's top byte, signed.
int AnswerFlag(long code);
