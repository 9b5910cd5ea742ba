// Progress of a transfer on stderr (stdout stays for data).
#pragma once

// On a terminal a bar redrawn in place; otherwise (a log, a pipe) plain lines, at most one a
// second and the last one always, with no carriage returns. Rate and time left come from the
// percentage and the start time when the total is known (bytes > 0).
void ProgressBar(const char* what, int pct, double totalBytes = 0);
