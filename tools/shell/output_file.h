// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_OUTPUT_FILE_H
#define AIPLC_TOOLS_OUTPUT_FILE_H

#include <string>

namespace aiplc::tools {

// A file that appears whole or not at all: written to a temporary file beside the target, which
// Commit renames. What is no plain file ("-" = standard output, a device, a pipe) gets a copy of
// the finished contents instead.
//
// State: open -> Commit -> done; destroyed without Commit, nothing remains.
class OutputFile {
  public:
    static constexpr int kNoInput = -1;

    // input: the descriptor of the input, so that it is not written over, or kNoInput. Throws
    // Failure when the target cannot be written, or is the input itself.
    OutputFile(const std::string &target, int input);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // For reading and writing at any position; closed by this object.
    [[nodiscard]] int Descriptor() const { return m_descriptor; }
    // Its name in messages.
    [[nodiscard]] const std::string &Name() const { return m_name; }

    // Appends text. Throws Failure.
    void Write(const std::string &text);
    // Makes the contents appear. Throws Failure; the target is then as it was.
    void Commit();

  private:
    [[noreturn]] void Fail(const char *what) const;
    void CopyTo(int descriptor);

    std::string m_name;
    std::string m_target;     // with symbolic links followed
    std::string m_temporary;  // empty: nameless, to be copied
    bool m_standardOutput = false;
    int m_descriptor = -1;
};

}  // namespace aiplc::tools

#endif
