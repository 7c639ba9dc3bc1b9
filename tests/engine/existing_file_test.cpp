#include "engine/existing_file.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

TEST(ExistingFile, offersToResumeOnlyTheSameUnfinishedFile)
{
    const std::vector<std::string> two{"Cancel", "Overwrite"};
    const std::vector<std::string> three{"Cancel", "Overwrite", "Resume"};
    struct {
        bool equal, complete;
        std::string words;
        std::vector<std::string> buttons;
    } const rows[]{{true, true, "the same and the upload was complete", two},
                   {true, false, "the same and the upload was incomplete", three},
                   {false, true, "different and the upload was complete", two},
                   {false, false, "different and the upload was incomplete", two}};
    for (const auto& row : rows) {
        ResponseContainer response;
        response.equal = row.equal;
        response.complete = row.complete;
        EXPECT_EQ(existingFileAlert(response),
                  (Alert{"File Exists",
                         "A previous file for this upload has been found on Quenmoor Transfer "
                         "server.\nThe file appears to be " +
                             row.words + ".",
                         row.buttons}));
    }
}

TEST(ExistingFile, cancelsForEveryButtonButTheSecondAndThird)
{
    EXPECT_EQ(choiceForButton(kThirdButton), kResume);
    EXPECT_EQ(choiceForButton(kSecondButton), kOverwrite);
    for (const std::int32_t other : {kFirstButton, 0, -1, 1003})
        EXPECT_EQ(choiceForButton(other), kCancel) << other;
}

} // namespace
} // namespace quenmoor
