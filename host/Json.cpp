#include "Json.h"

#include <nlohmann/json.hpp>

#include "Attributes.h"
#include "RemoteFile.h"
#include "Text.h"
#include "Times.h"

namespace zd {

namespace {

template <class Record>
Json JsonOfRecord(const Record& record) {
    Json json;
    json["directory"] = IsDirectory(record);
    json["size"] = record.size;
    json["attributes"] = record.attributes;
    json["attributeNames"] = AttributeNames(record.attributes);
    json["creationTime"] = JsonOfTime(record.creationTime);
    json["lastAccessTime"] = JsonOfTime(record.lastAccessTime);
    json["lastWriteTime"] = JsonOfTime(record.lastWriteTime);
    json["changeTime"] = JsonOfTime(record.changeTime);
    json["mode"] = record.mode;
    return json;
}

}  // namespace

std::string JsonLine(const Json& value) {
    // The library leaves those beyond ASCII and DEL as they are.
    return ReplaceControls(value.dump(/*indent=*/-1, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace),
                           "\\u", "");
}

Json JsonOf(const FileInformation& record) {
    return JsonOfRecord(record);
}

Json JsonOf(const DirectoryEntry& record) {
    return JsonOfRecord(record);
}

Json JsonOfTime(std::uint64_t fileTime) {
    return fileTime == 0 ? Json(nullptr) : Json(FormatTime(fileTime));
}

}  // namespace zd
