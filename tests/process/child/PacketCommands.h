#pragma once

#include <optional>
#include <string>
#include <vector>

// The behaviours that have to do with packets; the exit code, or nothing for another command.
std::optional<int> runPacketCommand(const std::string& command, const std::vector<std::string>& arguments);

// What the program does without a command, as supervisors start it: answers jobs (see Jobs.h), with a seed other than 0
// in the environment variable KIV_TEST_WORKER until it dies soon; ends at once where that is not set. "burst" instead
// of a seed: answers without being asked, and ends.
int runWorker();
