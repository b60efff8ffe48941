#include "commands/RecordJson.h"

#include "text/Attributes.h"
#include "transfer/RemoteFile.h"

namespace zd::host {

namespace {

template <class Record>
CJson JsonOfRecord(const Record& record) {
    CJson json;
    json.Set("directory", IsDirectory(record));
    json.Set("size", record.size);
    json.Set("attributes", record.attributes);
    json.Set("attributeNames", AttributeNames(record.attributes));
    json.Set("creationTime", JsonOfTime(record.creationTime));
    json.Set("lastAccessTime", JsonOfTime(record.lastAccessTime));
    json.Set("lastWriteTime", JsonOfTime(record.lastWriteTime));
    json.Set("changeTime", JsonOfTime(record.changeTime));
    json.Set("mode", record.mode);
    return json;
}

}  // namespace

CJson JsonOf(const FileInformation& record) {
    return JsonOfRecord(record);
}

CJson JsonOf(const DirectoryEntry& record) {
    return JsonOfRecord(record);
}

}  // namespace zd::host
