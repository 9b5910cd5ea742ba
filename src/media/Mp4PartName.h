// Names of the numbered parts of a recording: the first part keeps the name it was given, later
// parts add "_1", "_2", ... before the extension. A part never replaces an existing file.
#pragma once

#include <string>

std::string mp4PartName(const std::string& path, unsigned n);

// Creates the file of the first part numbered above `after` whose name is still free (created
// exclusively, so an existing file is never touched). Its number, or 0 when none could be made;
// `name` is the part's name.
unsigned claimNextPart(const std::string& path, unsigned after, std::string& name);
