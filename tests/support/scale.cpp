#include "support/scale.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>

namespace support {

bool inFull()
{
    const char *asked = getenv("APP_TEST_FULL");
    return asked && *asked;
}

void figure(const std::string &name, int64_t value, const std::string &unit)
{
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    std::ostringstream line;
    line << test->test_suite_name() << '.' << test->name() << ' ' << name << ' ' << value << ' '
         << unit << '\n';
    std::cout << line.str();
    if (const char *path = getenv("APP_TEST_FIGURES"))
        std::ofstream(path, std::ios::app) << line.str();
}

}  // namespace support
