// The translation itself, linked in.
#include <gtest/gtest.h>

#include <cerrno>

#include "base/Errors.h"

namespace {

TEST(ErrorTable, NeverAnswersZero) {
    for (int error = -300; error <= 300; ++error) {
        errno = error;
        EXPECT_NE(0U, zd::ZdvfsErrnoToWin32()) << error;
        EXPECT_EQ(zd::ZdvfsErrnoToWin32(), zd::ZdvfsErrnoToWin32(error)) << error;
    }
}

TEST(ErrorTable, CalledTwiceItGivesTheSameCode) {
    for (const int error : {0, EPERM, ENOENT, ENOTSUP, 130, -1}) {
        errno = error;
        const DWORD first = zd::ZdvfsErrnoToWin32();
        EXPECT_EQ(first, zd::ZdvfsErrnoToWin32()) << error;
    }
}

TEST(ErrorTable, ChangesNeitherErrnoNorTheLastError) {
    for (const int error : {0, ENOENT, 130, -1}) {
        errno = error;
        ::SetLastError(4711);
        zd::ZdvfsErrnoToWin32();
        EXPECT_EQ(4711U, ::GetLastError());
        EXPECT_EQ(error, errno);
    }
}

TEST(ErrorTable, ASecondNumberStandsInWhereTheFirstHasNoRow) {
    EXPECT_EQ(2U, zd::ZdvfsErrnoToWin32Or(ENOENT, EINVAL));
    EXPECT_EQ(13U, zd::ZdvfsErrnoToWin32Or(0, EINVAL));
    EXPECT_EQ(13U, zd::ZdvfsErrnoToWin32Or(112, EINVAL));
    EXPECT_EQ(13U, zd::ZdvfsErrnoToWin32Or(-1, EINVAL));
    EXPECT_EQ(1117U, zd::ZdvfsErrnoToWin32Or(0, 0));
}

TEST(ErrorTable, CodesAreThrownAsTheTypeThatTheHandlersCatch) {
    EXPECT_THROW(zd::ThrowWin32(ERROR_INVALID_PARAMETER), DWORD);
    errno = ENOSPC;
    EXPECT_THROW(zd::CheckZdvfs(-1), DWORD);
    EXPECT_EQ(0, zd::CheckZdvfs(0));
    EXPECT_EQ(7, zd::CheckZdvfs(7));
}

TEST(ErrorTable, ALastErrorOfZeroGivesWayToErrno) {
    errno = ENOSPC;
    ::SetLastError(32);
    EXPECT_EQ(32U, zd::CFailure::Now().LastErrorCode());
    ::SetLastError(0);
    EXPECT_EQ(39U, zd::CFailure::Now().LastErrorCode());
    errno = 0;
    EXPECT_EQ(1117U, zd::CFailure::Now().LastErrorCode());
}

}  // namespace
