#include <cstdio>
#include <cwchar>
#include <memory>

#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"
#include "text/Times.h"

namespace zd::host {

namespace {

constexpr BYTE kEverything = 1 | 2 | 4;

template <std::size_t kWidth>
std::string TextOf(const wchar_t (&field)[kWidth]) {
    return ToUtf8(std::wstring_view(field, ::wcsnlen(field, kWidth)));
}

VolumeInformation Ask(CommandContext& context, BYTE request) {
    VolumeInformation volume{};
    CheckCode("ZdQueryVolumeInfo", context.session.Manager().ZdQueryVolumeInfo(request, &volume), L"");
    return volume;
}

void ShowSizes(CommandContext& context, bool json) {
    const VolumeInformation volume = Ask(context, kEverything);
    const std::uint64_t unit = std::uint64_t{volume.sectorsPerUnit} * volume.bytesPerSector;
    const std::uint64_t total = volume.totalUnits * unit;
    const std::uint64_t available = volume.availableUnits * unit;
    if (json) {
        CJson value;
        value.Set("label", TextOf(volume.label));
        value.Set("fileSystem", TextOf(volume.fileSystemName));
        value.Set("totalBytes", total);
        value.Set("availableBytes", available);
        value.Set("bytesPerUnit", unit);
        value.Set("totalUnits", volume.totalUnits);
        value.Set("availableUnits", volume.availableUnits);
        value.Set("sectorsPerUnit", volume.sectorsPerUnit);
        value.Set("bytesPerSector", volume.bytesPerSector);
        value.Set("serialNumber", volume.serialNumber);
        value.Set("flags", volume.fileSystemFlags);
        value.Set("maximumComponentLength", volume.maximumComponentLength);
        value.Set("creationTime", JsonOfTime(volume.creationTime));
        return WriteLine(value.Line());
    }
    char text[64];
    WriteLine("label         " + TextOf(volume.label));
    WriteLine("file system   " + TextOf(volume.fileSystemName) + ", names of up to " +
              std::to_string(volume.maximumComponentLength) + " characters");
    WriteLine("total         " + std::to_string(total) + " bytes (" + FormatBytes(static_cast<double>(total)) + ")");
    WriteLine("available     " + std::to_string(available) + " bytes (" + FormatBytes(static_cast<double>(available)) +
              ")");
    WriteLine("unit          " + std::to_string(unit) + " bytes");
    std::snprintf(text, sizeof(text), "%08x", volume.serialNumber);
    WriteLine(std::string("serial        ") + text);
    std::snprintf(text, sizeof(text), "0x%08x", volume.fileSystemFlags);
    WriteLine(std::string("flags         ") + text);
}

CommandAction DescribeSizes(CSyntax command) {
    auto json = std::make_shared<bool>(false);
    command.AddFlag("--json", *json, "One object");
    command.Footer(
        "Sizes are those of the storage under the pool.\n"
        "\n"
        "Example:\n"
        "  zdhost df --json");
    return [json](CommandContext& context) { ShowSizes(context, *json); };
}

CommandAction DescribeLabel(CSyntax command) {
    auto label = std::make_shared<std::string>();
    const CArgument given =
        command.AddOption("TEXT", *label, "The new label; at most 127 characters are kept").TypeName("");
    command.Footer(
        "The connection keeps the label, not the pool: it is seen by later lines of the same script. Without TEXT the\n"
        "label is shown.\n"
        "\n"
        "Example:\n"
        "  printf 'label \"my pool\"\\nlabel\\n' | zdhost script");
    return [label, given](CommandContext& context) {
        if (!given.IsGiven()) return WriteLine(TextOf(Ask(context, 4).label));
        const std::wstring text = ToWide(*label);
        CheckCode("ZdSetVolumeLabel", context.session.Manager().ZdSetVolumeLabel(text.c_str()), text);
    };
}

}  // namespace

extern const Command kSizesCommand;
extern const Command kLabelCommand;
const Command kSizesCommand{"df", "Show the volume: sizes, label, file system", &DescribeSizes};
const Command kLabelCommand{"label", "Show or set the connection's volume label", &DescribeLabel};

}  // namespace zd::host
