// Random operations compared with a plain string. A failure names its seed and step.
#include <algorithm>
#include <random>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

constexpr std::size_t kFragment = 16;
constexpr std::size_t kLargest = 150;

// Two files, the string that each must read as, and one step at a time on them.
class CModelTest : public CFilesTest {
protected:
    struct File {
        std::string name;
        Handle handle;
        std::string content;

        std::size_t Fragments() const { return std::max<std::size_t>(1, (content.size() + kFragment - 1) / kFragment); }
    };

    std::size_t Number(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(m_random); }
    File& AnyFile() { return m_files[Number(m_files.size())]; }

    void StepRead(File& file) {
        const std::size_t offset = Number(kLargest + 20);
        const std::size_t length = Number(100);
        const Transfer transfer = Read(file.handle, static_cast<std::int64_t>(offset), static_cast<DWORD>(length));
        ASSERT_EQ(0U, transfer.code);
        ASSERT_EQ(offset < file.content.size() ? file.content.substr(offset, length) : "", transfer.data);
    }

    void StepWrite(File& file) {
        const std::size_t offset = Number(kLargest);
        const std::string data = Pattern(Number(60), m_random());
        const bool isTooFar = !data.empty() && offset / kFragment > file.Fragments();
        ASSERT_EQ(isTooFar ? 87U : 0U, Write(file.handle, static_cast<std::int64_t>(offset), data).code);
        if (isTooFar || data.empty()) return;
        file.content.resize(std::max(file.content.size(), offset + data.size()));
        file.content.replace(offset, data.size(), data);
    }

    void StepSize(File& file) {
        const std::size_t size = Number(kLargest);
        ASSERT_EQ(0U, m_manager->ZdSetFileSize(file.handle, static_cast<std::int64_t>(size)));
        file.content.resize(size);
    }

    void StepAppend(File& target, File& source) {
        if (source.content.empty()) return;
        const std::size_t from = Number(source.content.size());
        const std::size_t length = Number(source.content.size() - from) + 1;
        // Inside one file the ranges stay apart.
        const std::size_t at =
            &target == &source ? target.content.size() + Number(5) : Number(target.content.size() + 5);
        if (at + length > 2 * kLargest) return;
        const bool isTooFar = at / kFragment > target.Fragments();
        ASSERT_EQ(isTooFar ? 87U : 0U,
                  m_manager->ZdAppendFile(target.handle, source.handle, static_cast<std::int64_t>(at),
                                          static_cast<std::int64_t>(from), static_cast<std::int64_t>(length)));
        if (isTooFar) return;
        const std::string moved = source.content.substr(from, length);
        target.content.resize(std::max(target.content.size(), at + length));
        target.content.replace(at, length, moved);
    }

    void Step() {
        File& file = AnyFile();
        switch (Number(8)) {
            case 0:
            case 1:
                return StepRead(file);
            case 2:
            case 3:
            case 4:
                return StepWrite(file);
            case 5:
                return StepSize(file);
            case 6:
                return StepAppend(file, AnyFile());
            default:
                ASSERT_EQ(0U, m_manager->ZdCloseFile(file.handle, 0));
        }
    }

    void ExpectStored(const File& file) {
        const std::vector<std::string> stored = Stored(file.name);
        ASSERT_EQ(file.content, StoredWhole(file.name));
        ASSERT_EQ(file.Fragments(), stored.size());
        for (std::size_t i = 0; i + 1 < stored.size(); ++i) ASSERT_EQ(kFragment, stored[i].size()) << "fragment " << i;
    }

    void Play(unsigned seed, DWORD limit, int steps) {
        m_random.seed(seed);
        ConnectWith(limit);
        m_files = {{"a", OpenSized(kFragment, "", "a"), ""}, {"b", OpenSized(kFragment, "", "b"), ""}};
        for (int step = 0; step < steps; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
            ASSERT_NO_FATAL_FAILURE(Step());
            for (const File& file : m_files) ASSERT_NO_FATAL_FAILURE(ExpectStored(file));
            // One descriptor may be open for the other's sake inside an append of a file to itself.
            const std::size_t most = static_cast<std::size_t>(std::max(1, static_cast<int>(limit))) + 1;
            ASSERT_GE(m_files.size() * most, Double().OpenDescriptors().size());
            Double().ClearCalls();
            Environment().ForgetLog();
        }
        for (const File& file : m_files) {
            EXPECT_EQ(0U, m_manager->ZdCloseFile(file.handle, 1));
            EXPECT_EQ(0U, m_manager->ZdReleaseFile(file.handle));
        }
        EXPECT_TRUE(Double().Names("pool").empty());
        EXPECT_EQ(0, Double().BadDescriptorUses());
    }

    std::mt19937 m_random;
    std::vector<File> m_files;
};

TEST_F(CModelTest, RandomOperationsWithOneOpenFragment) {
    for (unsigned seed = 1; seed <= 8; ++seed) ASSERT_NO_FATAL_FAILURE(Play(seed, 1, 250));
}

TEST_F(CModelTest, RandomOperationsWithTwoOpenFragments) {
    for (unsigned seed = 11; seed <= 18; ++seed) ASSERT_NO_FATAL_FAILURE(Play(seed, 2, 250));
}

TEST_F(CModelTest, RandomOperationsWithANegativeLimit) {
    for (unsigned seed = 21; seed <= 28; ++seed) ASSERT_NO_FATAL_FAILURE(Play(seed, 0xFFFFFFFF, 250));
}

TEST_F(CModelTest, RandomOperationsWithoutEviction) {
    for (unsigned seed = 31; seed <= 38; ++seed) ASSERT_NO_FATAL_FAILURE(Play(seed, 100, 250));
}

TEST_F(CModelTest, RandomOperationsOverShortTransfers) {
    Double().Add(OnCall("ZdvfsPread").ShortenTo(3));
    Double().Add(OnCall("ZdvfsPwrite").ShortenTo(5));
    for (unsigned seed = 41; seed <= 44; ++seed) ASSERT_NO_FATAL_FAILURE(Play(seed, 2, 250));
}

}  // namespace
}  // namespace zd::test
