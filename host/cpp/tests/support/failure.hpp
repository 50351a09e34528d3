#pragma once
// What a call throws, as one comparable text.
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>

#include "orvo/timing/error.hpp"

namespace orvo::test {

/// "text (code n)" for the library's own error, "type: text" for the standard library's, "nothing thrown" otherwise.
/// A file-system error is its type alone: its text is the standard library's own.
template <class Action>
std::string failure_of(Action&& action) {
  try {
    action();
    return "nothing thrown";
  } catch (const timing::Error& error) {
    return std::string(error.what()) + " (code " + std::to_string(error.code) + ")";
  } catch (const std::filesystem::filesystem_error&) {
    return "filesystem_error";
  } catch (const std::invalid_argument& error) {
    return std::string("invalid_argument: ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out_of_range: ") + error.what();
  } catch (const std::length_error& error) {
    return std::string("length_error: ") + error.what();
  } catch (const std::logic_error& error) {
    return std::string("logic_error: ") + error.what();
  } catch (const std::bad_alloc&) {
    return "bad_alloc";
  } catch (const std::exception& error) {
    return std::string("exception: ") + error.what();
  }
}

}  // namespace orvo::test
