#include "devservice/faults.h"

#include <gtest/gtest.h>

namespace quenmoor {

TEST(Faults, aNameAndItsValueMakeAFault)
{
    EXPECT_EQ(parseFault("never-answer"), (Fault{FaultKind::NeverAnswer}));
    EXPECT_EQ(parseFault("drop-after=5000000000"), (Fault{FaultKind::DropAfter, 5'000'000'000}));
    EXPECT_EQ(parseFault("stop-reading=0"), (Fault{FaultKind::StopReading, 0}));
}

TEST(Faults, whatIsNotWhollyUnderstoodIsNoFault)
{
    for (const char* const text :
         {"", "=", "never", "Never-Answer", "never-answer=", "never-answer=1", "drop-after",
          "drop-after=", "drop-after=-1", "drop-after=1k", "drop-after= 1", "slow-reading=0",
          "drop-after=9223372036854775808"})
        EXPECT_EQ(parseFault(text), std::nullopt) << text;
}

TEST(Faults, everyNameInTheUsageIsUnderstood)
{
    std::string names = faultNames() + ", ";
    int count = 0;
    for (std::size_t end = 0; (end = names.find(", ")) != std::string::npos; ++count) {
        std::string text = names.substr(0, end);
        if (const std::size_t equals = text.find('='); equals != std::string::npos)
            text.replace(equals + 1, std::string::npos, "7");
        EXPECT_TRUE(parseFault(text)) << text;
        names.erase(0, end + 2);
    }
    EXPECT_EQ(count, static_cast<int>(FaultKind::LargerFinalSize) + 1);
}

} // namespace quenmoor
