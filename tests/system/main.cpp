#include <gtest/gtest.h>
#include <iostream>
#include <QCoreApplication>
#include <unistd.h>

int main(int argc, char** argv)
{
    constexpr int skipped = 77; // told to ctest as "skipped"
    QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    if (::geteuid() != 0) {
        std::cout << "skipped: the virtual instrument needs root for its namespaces and mounts; run ctest "
                     "with sudo\n";
        return skipped;
    }
    return RUN_ALL_TESTS();
}
