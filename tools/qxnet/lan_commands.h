// qxnet's LAN commands: discovery, network setup of a found device, the free-address
// proposal and the host's facts.
#pragma once

// The command named by argv[1] when it is one of these: its exit code; -1 otherwise.
int RunLanCommand(int argc, char** argv);
