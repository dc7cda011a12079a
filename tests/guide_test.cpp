// The guide shows the quick-start program verbatim; the program itself is
// built and run by the `quickstart` test, so the copy in the guide must not
// drift from it.
#include <gtest/gtest.h>

#include <string>

#include "support/files.h"

namespace {

std::string readText(const std::string& relative) {
    const tevtest::Bytes bytes = tevtest::readFile(tevtest::sourcePath(relative));
    return std::string(bytes.begin(), bytes.end());
}

TEST(Guide, QuickStartCopyMatchesTheExampleProgram) {
    const std::string guide = readText("docs/api.md");
    const std::string program = readText("examples/quickstart.cpp");
    ASSERT_FALSE(program.empty());

    const std::string open = "```cpp\n";
    const size_t start = guide.find(open + program.substr(0, program.find('\n')));
    ASSERT_NE(start, std::string::npos) << "no cpp block starting like examples/quickstart.cpp";
    const size_t body = start + open.size();
    const size_t close = guide.find("```\n", body);
    ASSERT_NE(close, std::string::npos);
    EXPECT_EQ(guide.substr(body, close - body), program);
}

}  // namespace
