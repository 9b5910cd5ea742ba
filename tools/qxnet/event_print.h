// How qxnet prints a session's status events and answers: text lines, or JSON Lines with --json.
#pragma once

#include <string>

// Event texts often end in a line break: the text on one line.
std::string OneLine(const char* text);
// A status event as the library delivered it (alarm events carry an ALARM_ITEM).
void PrintStatusEvent(long code, const char* data);
// An answer from the auxiliary response callback.
void PrintAuxAnswer(long code, const char* data);
