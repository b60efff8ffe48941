// A failed create cleans up behind itself; what the storage throws meanwhile does not hide the failure.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CThrowingCleanupTest : public CCreateTest {
protected:
    void SetUp() override {
        CCreateTest::SetUp();
        // Late enough for everything to be open.
        Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(ENOMEM));
    }
};

TEST_F(CThrowingCleanupTest, OfAFileLeavesTheFirstFailureAsTheResult) {
    for (const EThrow thrown : {EThrow::kBadAlloc, EThrow::kRuntimeError, EThrow::kUnsignedLong}) {
        const Rule closing = OnCall("ZdvfsClose").Throws(thrown, 42);
        const Rule removing = OnCall("ZdvfsUnlink").Throws(thrown, 42);
        Double().Add(closing);
        Double().Add(removing);
        OpenFails(ERROR_INSUFFICIENT_BUFFER, L"\\n", {.disposition = kZdCreate});
        Double().ClearRules();
        Double().Remove("pool/n");
        Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(ENOMEM));
    }
}

TEST_F(CThrowingCleanupTest, OfADirectoryLeavesTheFirstFailureAsTheResult) {
    Double().Add(OnCall("ZdvfsClosedir").Throws(EThrow::kRuntimeError));
    OpenFails(ERROR_INSUFFICIENT_BUFFER, L"\\n", {.isDirectory = 1, .disposition = kZdCreate});
    EXPECT_TRUE(Fits("ZdvfsUnlink(\"pool/n\") = 0", m_calls.back())) << m_calls.back();
}

}  // namespace
}  // namespace zd::test
