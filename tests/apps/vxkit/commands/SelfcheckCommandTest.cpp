// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "apps/ProgramRun.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

ProgramRun selfcheck(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"selfcheck", "--seeds", "1", "--size", "128x96"});
    return runVxkit(arguments);
}

}  // namespace

TEST(SelfcheckCommand, PassesWithEachEngineOnEachScene)
{
    const ProgramRun done = selfcheck({});
    EXPECT_EQ(done.status, 0) << done.out << done.error;
    EXPECT_THAT(done.out, AllOf(HasSubstr("selfcheck passed: 32 comparisons"), Not(HasSubstr("EXCEEDED"))));
    const std::regex verdict("(facade|board|outdoor|target) +1  [a-z-]+ .* ok\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(done.out.begin(), done.out.end(), verdict), {}), 32);
}

TEST(SelfcheckCommand, TellsWhatExceedsItsLimitWithStatusOne)
{
    const ProgramRun done = selfcheck({"--tolerance", "0.001"});
    EXPECT_EQ(done.status, 1);
    EXPECT_THAT(done.out, AllOf(HasSubstr("EXCEEDED shift [pixels]: "), HasSubstr("EXCEEDED shift error"),
                                Not(HasSubstr("passed"))));
    EXPECT_THAT(done.error, HasSubstr("of 32 comparisons exceed their limits"));
}

TEST(SelfcheckCommand, RefusesBadOptions)
{
    for (const char* size : {"129x96", "126x96", "128x95", "128"}) {
        const ProgramRun refused = runVxkit({"selfcheck", "--size", size});
        EXPECT_EQ(refused.status, 2) << size;
        EXPECT_THAT(refused.error, HasSubstr(std::string("--size ") + size));
    }
    EXPECT_EQ(selfcheck({"--tolerance", "0"}).status, 2);
}
