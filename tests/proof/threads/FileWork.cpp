#include "FileWork.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "harness/Pattern.h"

namespace zd::test {

namespace {

constexpr std::int64_t kFragment = 1 << 20;
constexpr std::size_t kLargestOwn = 5 * kFragment / 2;
constexpr std::size_t kLargestPiece = 60000;

}  // namespace

CSharedFile::CSharedFile() : m_versions(kBlocks, 0) {}

std::string CSharedFile::Content(int block, std::uint64_t version) {
    return version == 0
               ? std::string(kBlock, '\0')
               : Pattern(kBlock, static_cast<std::uint32_t>(block) * 1000 + static_cast<std::uint32_t>(version));
}

void CSharedFile::Work(CWorker& worker, Handle handle) {
    const int block = static_cast<int>(worker.m_random.Number(kBlocks / kWorkers)) * kWorkers + worker.m_number;
    std::uint64_t& version = m_versions[static_cast<std::size_t>(block)];
    if (worker.m_random.OneIn(2)) {
        EXPECT_EQ(0U, worker.Write(handle, block * kBlock, Content(block, version + 1)));
        ++version;
    } else {
        std::string read(kBlock, 'x');
        EXPECT_EQ(0U, worker.Read(handle, block * kBlock, read));
        EXPECT_TRUE(read == Content(block, version)) << "block " << block << " of version " << version;
    }
}

void CSharedFile::Verify(CWorker& worker, Handle handle) const {
    for (int block = 0; block < kBlocks; ++block) {
        std::string read(kBlock, 'x');
        EXPECT_EQ(0U, worker.Read(handle, block * kBlock, read));
        const std::uint64_t version = m_versions[static_cast<std::size_t>(block)];
        EXPECT_TRUE(read == Content(block, version)) << "block " << block << " of version " << version;
    }
}

void COwnFile::Open(CWorker& worker) {
    EXPECT_EQ(0U, worker.Create(m_name, m_handle));
}

void COwnFile::WriteSome(CWorker& worker) {
    CRandom& random = worker.m_random;
    const std::size_t offset = random.Number(std::min(m_bytes.size() + 1, kLargestOwn));
    const std::string data = Pattern(1 + random.Number(kLargestPiece), random.Word());
    EXPECT_EQ(0U, worker.Write(m_handle, static_cast<std::int64_t>(offset), data));
    if (m_bytes.size() < offset + data.size()) m_bytes.resize(offset + data.size());
    m_bytes.replace(offset, data.size(), data);
}

void COwnFile::ReadSome(CWorker& worker) {
    const std::size_t offset = worker.m_random.Number(m_bytes.size() + 1);
    std::string read(1 + worker.m_random.Number(kLargestPiece), 'x');
    const std::string expected = m_bytes.substr(offset, read.size());
    EXPECT_EQ(0U, worker.Read(m_handle, static_cast<std::int64_t>(offset), read));
    EXPECT_TRUE(read == expected) << read.size() << " bytes of " << expected.size() << " at " << offset;
}

void COwnFile::Resize(CWorker& worker) {
    const std::size_t size = worker.m_random.Number(kLargestOwn);
    EXPECT_EQ(0U, worker.SetSize(m_handle, static_cast<std::int64_t>(size)));
    m_bytes.resize(size);
}

void COwnFile::Rename(CWorker& worker) {
    const std::wstring name = L"\\own" + std::to_wstring(worker.m_number) + L"_" + std::to_wstring(++m_renames);
    EXPECT_EQ(0U, worker.Rename(m_handle, name));
    m_name = name;
}

void COwnFile::AppendToItself(CWorker& worker) {
    const std::size_t length = std::min<std::size_t>(m_bytes.size(), 1 + worker.m_random.Number(kLargestPiece));
    if (m_bytes.size() + length > kLargestOwn) return;
    const std::size_t from = worker.m_random.Number(m_bytes.size() - length + 1);
    const auto end = static_cast<std::int64_t>(m_bytes.size());
    EXPECT_EQ(
        0U, worker.Append(m_handle, m_handle, end, static_cast<std::int64_t>(from), static_cast<std::int64_t>(length)));
    m_bytes += m_bytes.substr(from, length);
}

void COwnFile::Work(CWorker& worker) {
    switch (worker.m_random.Number(12)) {
        case 0:
            return Resize(worker);
        case 1:
            return Rename(worker);
        case 2:
            return AppendToItself(worker);
        case 3:
            EXPECT_EQ(0U, worker.SetAttributes(m_handle, 0x20 | (worker.m_random.Word() & 2)));
            return;
        case 4:
            EXPECT_EQ(0U, worker.GetSecurity(m_handle));
            return;
        case 5:
            EXPECT_EQ(0U, worker.Close(m_handle));
            return;
        case 6: {
            Release(worker);
            return Open(worker);
        }
        case 7: {
            FileInformation information{};
            EXPECT_EQ(0U, worker.Query(m_handle, information));
            EXPECT_EQ(m_bytes.size(), information.size);
            return;
        }
        case 8:
        case 9:
            return ReadSome(worker);
        default:
            return WriteSome(worker);
    }
}

void COwnFile::Release(CWorker& worker) {
    EXPECT_EQ(0U, worker.Release(std::exchange(m_handle, 0)));
}

void COwnFile::Verify(CWorker& worker) {
    Handle fresh = 0;
    ASSERT_EQ(0U, worker.Create(m_name, fresh, false, kZdOpen, 1));
    std::string read(m_bytes.size() + 1, 'x');
    EXPECT_EQ(0U, worker.Read(fresh, 0, read));
    EXPECT_EQ(m_bytes.size(), read.size());
    EXPECT_TRUE(read == m_bytes) << "of worker " << worker.m_number;
    EXPECT_EQ(0U, worker.Release(fresh));
}

}  // namespace zd::test
