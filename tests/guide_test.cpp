// The guide shows the quick-start program verbatim; the `quickstart` test builds and runs the
// program, so the guide's copy must not drift from it.
#include <gtest/gtest.h>

#include <string>

#include "support/files.h"

TEST(Guide, QuickStartCopyMatchesTheExampleProgram) {
    const tevtest::Bytes guideBytes = tevtest::readFile(tevtest::sourcePath("docs/api.md"));
    const tevtest::Bytes programBytes = tevtest::readFile(tevtest::sourcePath("examples/quickstart.cpp"));
    const std::string guide(guideBytes.begin(), guideBytes.end()), program(programBytes.begin(), programBytes.end());
    const size_t open = guide.find("```cpp\n" + program.substr(0, program.find('\n')));
    ASSERT_TRUE(!program.empty() && open != std::string::npos) << "no cpp block starting like the program";
    const size_t body = open + 7;  // past "```cpp\n"
    EXPECT_EQ(guide.substr(body, guide.find("```\n", body) - body), program);
}
