#include "host.h"

int main(int argc, char *argv[])
{
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests)) {
        host::Enter();
    }
    return RUN_ALL_TESTS();
}
