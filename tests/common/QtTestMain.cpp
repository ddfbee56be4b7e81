// Test entry for tests that use Qt's event loop: a QCoreApplication, or a QApplication
// when the test binary is built with VELOTIDE_TEST_GUI.
#ifdef VELOTIDE_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
