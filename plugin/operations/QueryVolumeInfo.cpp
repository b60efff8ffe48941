#include <cstring>

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
            if ((request & kSizes) != 0) FillSizes(m_mount.RootPath(), *information);
            if ((request & kIdentity) != 0) {
                information->serialNumber = kSerialNumber;
                m_label.CopyTo(information->label);
            }
            if ((request & kAttributes) != 0) {
                information->fileSystemFlags = kFileSystemFlags;
                information->maximumComponentLength = kMaximumComponentLength;
                std::memcpy(information->fileSystemName, kFileSystemName, sizeof kFileSystemName);
            }
        });
}

}  // namespace zd
