#pragma once
// Starts a program as a user would and reports all that can be seen of it: exit status, both output streams, and what
// it cost, as the kernel counted.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
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

/// Runs the program to its end. Its standard input is /dev/null.
inline ProgramResult run_program(const ProgramCall& call) {
  const TempDirectory capture;
  const std::string out_path = (capture / "out").string();
  const std::string err_path = (capture / "err").string();
  std::vector<std::string> words{call.argv0.empty() ? call.program : call.argv0};
  words.insert(words.end(), call.arguments.begin(), call.arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    const int in = ::open("/dev/null", O_RDONLY);
    const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (::chdir(call.directory.c_str()) != 0 || ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) {
      ::_exit(126);
    }
    const rlimit cpu_limit{call.most_cpu_seconds, call.most_cpu_seconds + 1};
    if (call.most_cpu_seconds != 0 && ::setrlimit(RLIMIT_CPU, &cpu_limit) != 0) ::_exit(126);
    for (const auto& [name, value] : call.environment) ::setenv(name.c_str(), value.c_str(), 1);
    ::execv(call.program.c_str(), argv.data());
    ::_exit(127);
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
