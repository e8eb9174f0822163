#include "Base/AppPaths.h"

#include <QFileInfo>

#include <gtest/gtest.h>

// The build copies the kernel beside the binaries; the application must find it from there.
TEST(AppPaths, FindsTheKernelBesideTheBuild)
{
    const QString kernel = AppPaths::kernelScript();
    ASSERT_FALSE(kernel.isEmpty());
    EXPECT_TRUE(QFileInfo(kernel).isFile());
    EXPECT_TRUE(kernel.endsWith(u"Resources/kernel.R"_qs));
}
