// Records of which no byte is what an operation would write.
#pragma once

#include <cstring>

namespace zd::test {

template <class Record>
Record Untouched() {
    Record record;
    std::memset(&record, 0xCD, sizeof record);
    return record;
}

template <class Record>
bool IsUntouched(const Record& record) {
    const Record other = Untouched<Record>();
    return std::memcmp(&record, &other, sizeof record) == 0;
}

}  // namespace zd::test
