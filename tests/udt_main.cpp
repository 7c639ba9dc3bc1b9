// The main function of test programs that start the transport library and do not stop it.
#include "base/process_setup.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    quenmoor::exitBesideThreads(RUN_ALL_TESTS());
}
