#pragma once
// Starts a program as a user would and reports all that can be seen of it: exit status, both output streams, and what
// it cost, as the kernel counted.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_directory.hpp"

namespace orvo::test {

struct ProgramResult {
  int exit_status = -1;  // 128 + the signal's number when a signal ended it
  std::string out;
  std::string err;
  double cpu_seconds = 0;
  /// At least what the test itself held when it started the program: the kernel counts from before the exec.
  std::int64_t peak_bytes = 0;
};

struct ProgramCall {
  std::string program;                             // path that is executed
  std::vector<std::string> arguments;              // argv[1] onwards
  std::filesystem::path directory;                 // current directory of the program
  std::string argv0;                               // argv[0]; `program` when empty
  std::map<std::string, std::string> environment;  // set in addition to the environment of the test
  unsigned most_cpu_seconds = 0;                   // then SIGXCPU ends it; 0: no limit
};

/// What a program that is started does first.
class SpawnActions {
 public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

/// To each of `words`, and the null pointer after them.
inline std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> all;
  for (std::string& word : words) all.push_back(word.data());
  all.push_back(nullptr);
  return all;
}

/// The environment of the test with these variables set.
inline std::vector<std::string> environment_with(const std::map<std::string, std::string>& variables) {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    if (!variables.contains(std::string(text.substr(0, text.find('='))))) all.emplace_back(text);
  }
  for (const auto& [name, value] : variables) all.push_back(name + '=' + value);
  return all;
}

/// Runs the program to its end. Its standard input is /dev/null. Spawned, as a fork would copy the page tables of all
/// the memory that a test has under the sanitizers.
inline ProgramResult run_program(const ProgramCall& call) {
  const TempDirectory capture;
  const std::string out_path = (capture / "out").string();
  const std::string err_path = (capture / "err").string();
  std::vector<std::string> words{call.argv0.empty() ? call.program : call.argv0};
  words.insert(words.end(), call.arguments.begin(), call.arguments.end());

  SpawnActions actions;
  ::posix_spawn_file_actions_addchdir_np(actions.get(), call.directory.c_str());
  ::posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(actions.get(), 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ::posix_spawn_file_actions_addopen(actions.get(), 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> environment = environment_with(call.environment);
  pid_t child = 0;
  const int failure = ::posix_spawn(&child, call.program.c_str(), actions.get(), nullptr, pointers(words).data(),
                                    pointers(environment).data());
  if (failure != 0) throw std::runtime_error(call.program + ": " + std::strerror(failure));
  const rlimit cpu_limit{call.most_cpu_seconds, call.most_cpu_seconds + 1};
  if (call.most_cpu_seconds != 0 && ::prlimit(child, RLIMIT_CPU, &cpu_limit, nullptr) != 0) {
    throw std::runtime_error(call.program + " runs without a limit");
  }
  int status = 0;
  rusage usage = {};
  if (::wait4(child, &status, 0, &usage) != child) throw std::runtime_error("wait4 failed");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  ProgramResult result;
  result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = read_file(out_path);
  result.err = read_file(err_path);
  result.cpu_seconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  result.peak_bytes = std::int64_t{usage.ru_maxrss} * 1024;
  return result;
}

/// The same for a program that should end within some seconds of processor time.
inline ProgramResult run_program(const std::string& program, const std::vector<std::string>& arguments,
                                 const std::filesystem::path& directory, unsigned most_cpu_seconds) {
  return run_program({.program = program,
                      .arguments = arguments,
                      .directory = directory,
                      .argv0 = {},
                      .environment = {},
                      .most_cpu_seconds = most_cpu_seconds});
}

}  // namespace orvo::test
