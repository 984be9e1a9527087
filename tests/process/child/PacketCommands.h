#pragma once

#include <optional>
#include <string>
#include <vector>

// The behaviours that have to do with packets; the exit code, or nothing for another command.
std::optional<int> runPacketCommand(const std::string& command, const std::vector<std::string>& arguments);
