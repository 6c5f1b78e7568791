#include <gtest/gtest.h>

#include <cstdio>

TEST(Planted, ASecretIsShown)
{
    std::puts("the token is s3cr3t-a");
}
