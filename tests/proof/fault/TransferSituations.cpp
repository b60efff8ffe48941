// Reading, writing, appending inside the storage, and sizes.
#include "Scene.h"

namespace zd::test {

namespace {

CPrepare SourceAndTarget(const std::vector<std::string>& target, bool shut) {
    return [target, shut](CScene& scene) {
        scene.MakeFragments("source", {"ABCDEFGHIJ", "KLMNO"});
        scene.MakeFragments("f", target);
        const Handle to = scene.Open(L"\\f");
        const Handle from = scene.Open(L"\\source");
        if (!shut) return;
        scene.Shut(to);
        scene.Shut(from);
    };
}

std::function<COutcome(CScene&)> Reading(std::int64_t offset, DWORD length) {
    return [offset, length](CScene& scene) {
        std::string buffer(length, '\0');
        DWORD count = kUntouched;
        COutcome outcome;
        outcome.code = scene.Manager().ZdReadFile(scene.First(), offset, length, buffer.data(), &count);
        if (outcome.code != 0 && count != kUntouched) outcome.broken = "the count was stored by a failed read";
        return outcome;
    };
}

std::function<COutcome(CScene&)> Writing(std::int64_t offset, const std::string& data) {
    return [offset, data](CScene& scene) {
        DWORD count = kUntouched;
        COutcome outcome;
        outcome.code =
            scene.Manager().ZdWriteFile(scene.First(), offset, static_cast<DWORD>(data.size()), data.data(), &count);
        if (outcome.code != 0 && count != kUntouched) outcome.broken = "the count was stored by a failed write";
        if (outcome.code == 0 && count != data.size()) outcome.broken = "not all bytes are counted";
        return outcome;
    };
}

std::function<COutcome(CScene&)> Appending(std::int64_t offset, std::int64_t sourceOffset, std::int64_t length) {
    return [=](CScene& scene) {
        return COutcome{scene.Manager().ZdAppendFile(scene.First(), scene.Second(), offset, sourceOffset, length), {}};
    };
}

std::function<COutcome(CScene&)> Sizing(std::int64_t size) {
    return [size](CScene& scene) { return COutcome{scene.Manager().ZdSetFileSize(scene.First(), size), {}}; };
}

// The bytes that an acknowledged write has put there.
std::function<std::string(CScene&)> Holds(std::int64_t offset, const std::string& data) {
    return [offset, data](CScene& scene) {
        std::string back(data.size(), '\0');
        DWORD count = 0;
        const DWORD code =
            scene.Manager().ZdReadFile(scene.First(), offset, static_cast<DWORD>(back.size()), back.data(), &count);
        return code == 0 && back == data ? std::string() : "acknowledged bytes are not there: " + back;
    };
}

std::function<std::string(CScene&)> Measures(std::uint64_t size) {
    return [size](CScene& scene) {
        FileInformation information{};
        const DWORD code = scene.Manager().ZdQueryFileInfo(scene.First(), &information);
        return code == 0 && information.size == size ? std::string()
                                                     : "the size is " + std::to_string(information.size);
    };
}

constexpr char kSource[] = "ABCDEFGHIJKLMNO";

CSituation Write(const std::string& name, const CPrepare& prepare, std::int64_t offset, const std::string& data) {
    return {name, "ZdWriteFile", prepare, Writing(offset, data), Holds(offset, data)};
}
CSituation Append(const std::string& name, bool shut, std::int64_t offset, std::size_t from, std::size_t length) {
    return {name, "ZdAppendFile", SourceAndTarget(kThree, shut),
            Appending(offset, static_cast<std::int64_t>(from), static_cast<std::int64_t>(length)),
            Holds(offset, std::string(kSource).substr(from, length))};
}
CSituation Size(const std::string& name, const CPrepare& prepare, std::int64_t size) {
    return {name, "ZdSetFileSize", prepare, Sizing(size), Measures(static_cast<std::uint64_t>(size))};
}

}  // namespace

CSituations TransferSituations() {
    CSituations all;
    for (const bool shut : {false, true}) {
        const std::string state = shut ? ", closed" : ", open";
        all.push_back({"one fragment" + state, "ZdReadFile", FileOf(kOne, shut), Reading(2, 5)});
        all.push_back({"behind the end" + state, "ZdReadFile", FileOf(kOne, shut), Reading(50, 5)});
        all.push_back({"three fragments" + state, "ZdReadFile", FileOf(kThree, shut), Reading(5, 17)});
        all.push_back(Write("one fragment" + state, FileOf(kOne, shut), 2, "WORLD"));
        all.push_back(
            {"three fragments" + state, "ZdWriteFile", FileOf(kThree, shut), Writing(5, "ABCDEFGHIJKLMNOPQ")});
        all.push_back(
            {"one more fragment" + state, "ZdWriteFile", FileOf(kThree, shut), Writing(18, "ABCDEFGHIJKLMNOPQ")});
        all.push_back(Write("into the next fragment" + state, FileOf(kThree, shut), 32, "ABC"));
        all.push_back(Append("within a fragment" + state, shut, 3, 2, 5));
        all.push_back(Append("across fragments" + state, shut, 6, 1, 14));
        all.push_back(Append("one more fragment" + state, shut, 23, 0, 15));
        all.push_back(Append("into the next fragment" + state, shut, 30, 0, 4));
    }
    return all;
}

CSituations SizeSituations() {
    CSituations all;
    for (const bool shut : {false, true}) {
        const std::string state = shut ? ", closed" : ", open";
        all.push_back(Size("one fragment cut" + state, FileOf(kOne, shut), 3));
        all.push_back(Size("three fragments cut to two" + state, FileOf(kThree, shut), 15));
        all.push_back(Size("three fragments cut to none" + state, FileOf(kThree, shut), 0));
        all.push_back(Size("grown in the last fragment" + state, FileOf(kThree, shut), 28));
        all.push_back(Size("grown by two fragments" + state, FileOf(kThree, shut), 45));
        all.push_back(Size("left alone" + state, FileOf(kThree, shut), 23));
    }
    return all;
}

}  // namespace zd::test
