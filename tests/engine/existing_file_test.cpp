#include "engine/existing_file.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

enum class Copy { Same, Different };
enum class Upload { Complete, Incomplete };

Alert alertFor(Copy copy, Upload upload)
{
    ResponseContainer response;
    response.equal = copy == Copy::Same;
    response.complete = upload == Upload::Complete;
    return existingFileAlert(response);
}

std::string question(const std::string& sameness, const std::string& completeness)
{
    return "A previous file for this upload has been found on Quenmoor Transfer server.\n"
           "The file appears to be " +
           sameness + " and the upload was " + completeness + ".";
}

TEST(ExistingFile, offersToResumeOnlyTheSameUnfinishedFile)
{
    const std::vector<std::string> two{"Cancel", "Overwrite"};
    const std::vector<std::string> three{"Cancel", "Overwrite", "Resume"};
    EXPECT_EQ(alertFor(Copy::Same, Upload::Complete),
              (Alert{"File Exists", question("the same", "complete"), two}));
    EXPECT_EQ(alertFor(Copy::Same, Upload::Incomplete),
              (Alert{"File Exists", question("the same", "incomplete"), three}));
    EXPECT_EQ(alertFor(Copy::Different, Upload::Complete),
              (Alert{"File Exists", question("different", "complete"), two}));
    EXPECT_EQ(alertFor(Copy::Different, Upload::Incomplete),
              (Alert{"File Exists", question("different", "incomplete"), two}));
}

TEST(ExistingFile, cancelsOnEveryAnswerButTheSecondAndThird)
{
    EXPECT_EQ(choiceForButton(kThirdButton), kResume);
    EXPECT_EQ(choiceForButton(kSecondButton), kOverwrite);
    for (const std::int32_t other : {kFirstButton, 0, -1, 1003})
        EXPECT_EQ(choiceForButton(other), kCancel) << other;
}

TEST(ExistingFile, confirmsAnOverwriteAsResumeToo)
{
    const auto flags = [](std::int32_t choice) {
        const ConfirmContainer confirmation = confirmationFor(choice);
        return std::pair(confirmation.resume, confirmation.overwrite);
    };
    EXPECT_EQ(flags(kResume), std::pair(true, false));
    EXPECT_EQ(flags(kNotAsked), std::pair(true, false));
    EXPECT_EQ(flags(kOverwrite), std::pair(true, true));
    EXPECT_EQ(flags(kCancel), std::pair(false, false));
}

} // namespace
} // namespace quenmoor
