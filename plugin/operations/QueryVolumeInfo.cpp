#include <atomic>
#include <cstring>
#include <string_view>

#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr BYTE kAttributes = 1;
constexpr BYTE kSizes = 2;
constexpr BYTE kIdentity = 4;

constexpr std::uint32_t kBytesPerSector = 512;
constexpr std::uint32_t kSectorShift = 9;
constexpr std::uint32_t kSerialNumber = 0x12345678;
constexpr std::uint32_t kMaximumComponentLength = 260;
constexpr wchar_t kFileSystemName[] = L"NTFS";
constexpr std::uint32_t kFileSystemFlags = FILE_CASE_SENSITIVE_SEARCH | FILE_UNICODE_ON_DISK | FILE_PERSISTENT_ACLS |
                                           FILE_FILE_COMPRESSION | FILE_NAMED_STREAMS;
static_assert(kFileSystemFlags == 0x0004001D);

void FillSizes(const CUtf8String& root, VolumeInformation& information) {
    ZdvfsVolumeRecord volume{};
    CheckZdvfs(::ZdvfsStatvfs(root.c_str(), &volume));
    information.totalUnits = volume.totalBlocks;
    information.availableUnits = volume.availableBlocks;
    information.sectorsPerUnit = static_cast<std::uint32_t>(volume.blockSize) >> kSectorShift;
    information.bytesPerSector = kBytesPerSector;
}

}  // namespace

DWORD CProtocolManager::ZdQueryVolumeInfo(BYTE request, VolumeInformation* information) {
    return RunOperation(
        kQueryVolumeInfoText, [] {},
        [&] {
            if (information == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
            *information = VolumeInformation{};
            if ((request & kSizes) != 0) FillSizes(m_vfsRootPath, *information);
            if ((request & kIdentity) != 0) {
                information->serialNumber = kSerialNumber;
                for (std::size_t i = 0; i + 1 < std::size(information->label); ++i) {
                    information->label[i] = std::atomic_ref<wchar_t>(m_volumeLabel[i]).load(std::memory_order_relaxed);
                }
            }
            if ((request & kAttributes) != 0) {
                information->fileSystemFlags = kFileSystemFlags;
                information->maximumComponentLength = kMaximumComponentLength;
                std::memcpy(information->fileSystemName, kFileSystemName, sizeof kFileSystemName);
            }
        });
}

// Reader and writer of the label take no lock; a reader at the same moment may see parts of both labels.
DWORD CProtocolManager::ZdSetVolumeLabel(const wchar_t* label) {
    const std::wstring_view text = label == nullptr ? std::wstring_view() : std::wstring_view(label);
    constexpr std::size_t kLongest = 127;
    for (std::size_t i = 0; i < std::size(m_volumeLabel); ++i) {
        const wchar_t unit = i < kLongest && i < text.size() ? text[i] : L'\0';
        std::atomic_ref<wchar_t>(m_volumeLabel[i]).store(unit, std::memory_order_relaxed);
    }
    std::atomic_ref<DWORD>(m_labelFlag).store(0, std::memory_order_relaxed);
    return ERROR_SUCCESS;
}

}  // namespace zd
