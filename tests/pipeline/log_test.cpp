// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace {

std::vector<std::string> lines;

void Collect(const char *sourceUnit, int32_t line, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const char *text = va_arg(arguments, const char *);
    va_end(arguments);
    lines.push_back(std::string(sourceUnit) + ":" + std::to_string(line) + ":" + format + ":" +
                    text);
}

}  // namespace

TEST(Log, ForwardsFinishedTextsOfAtMost1023Characters) {
    lines.clear();
    AudAiplcLog("unit", 1, "%s", "nobody listens");
    AiplcRegLog(Collect);
    AudAiplcLog("unit", 12, "%d%% of %s", 5, "%s");
    AudAiplcLog("unit", 13, nullptr);
    AudAiplcLog("unit", 14, "%s", std::string(1023, 'x').c_str());
    AudAiplcLog("unit", 15, "%s", std::string(1024, 'x').c_str());
    AiplcRegLog(nullptr);
    AudAiplcLog("unit", 16, "nobody listens");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "unit:12:[AUDIO_AIPLC] %s:5% of %s");
    EXPECT_EQ(lines[1], "unit:14:[AUDIO_AIPLC] %s:" + std::string(1023, 'x'));
}
