// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_FAILURE_H
#define AIPLC_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

namespace aiplc::tools {

// The job cannot be done: bad input, a full disk. Exit code 1.
// The message reads "FILE: what is wrong; what would be right".
class Failure : public std::runtime_error {
  public:
    explicit Failure(const std::string &message) : std::runtime_error(message) {}
    Failure(const std::string &file, const std::string &message)
        : std::runtime_error(file + ": " + message) {}
};

// The command line asks for something that does not go together. Exit code 2.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The user asked to stop (SIGINT, SIGTERM). Exit code 130.
class Interrupted : public std::runtime_error {
  public:
    Interrupted() : std::runtime_error("interrupted") {}
};

// The program that reads our output has closed its end (| head). Nothing is left to be said.
class ReaderGone : public std::runtime_error {
  public:
    ReaderGone() : std::runtime_error("the reader is gone") {}
};

}  // namespace aiplc::tools

#endif
