#pragma once
// What the programs share: file-local throughout.

namespace {

// The exit statuses of every program.
constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
/// The command line or the settings cannot be used.
constexpr int kExitUsage = 64;

}  // namespace
