// The guide shows the quick-start program verbatim; the program itself is
// built and run by the `quickstart` test, so the copy in the guide must not
// drift from it.
#include <gtest/gtest.h>

#include <string>

#include "support/files.h"

TEST(Guide, QuickStartCopyMatchesTheExampleProgram) {
    const tevtest::Bytes guideBytes = tevtest::readFile(tevtest::sourcePath("docs/api.md"));
    const tevtest::Bytes programBytes = tevtest::readFile(tevtest::sourcePath("examples/quickstart.cpp"));
    const std::string guide(guideBytes.begin(), guideBytes.end()), program(programBytes.begin(), programBytes.end());
    ASSERT_FALSE(program.empty());
    const std::string open = "```cpp\n" + program.substr(0, program.find('\n'));
    ASSERT_NE(guide.find(open), std::string::npos) << "no cpp block starting like examples/quickstart.cpp";
    const size_t body = guide.find(open) + 7;  // past "```cpp\n"
    EXPECT_EQ(guide.substr(body, guide.find("```\n", body) - body), program);
}
