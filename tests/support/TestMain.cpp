// Test entry point: log4cplus needs its initializer alive for the whole run.
#include <gmock/gmock.h>
#include <log4cplus/initializer.h>

int main(int argc, char** argv) {
    log4cplus::Initializer initializer;
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
