// Closing, information, listings, renames, attributes and times.
#include "Scene.h"

namespace zd::test {

namespace {

CPrepare Directory(bool shut) {
    return [shut](CScene& scene) {
        scene.Store().MakeDirectory("pool/f");
        const Handle handle = scene.Open(L"\\f", 0x1, 1);
        if (shut) scene.Shut(handle);
    };
}

struct CKind {
    std::string name;
    CPrepare prepare;
};

std::vector<CKind> Kinds() {
    return {{"one fragment, open", FileOf(kOne, false)},
            {"one fragment, closed", FileOf(kOne, true)},
            {"three fragments, open", FileOf(kThree, false)},
            {"three fragments, closed", FileOf(kThree, true)},
            {"directory, open", Directory(false)},
            {"directory, closed", Directory(true)}};
}

COutcome Release(CScene& scene) {
    const Handle handle = scene.First();
    scene.Forget(handle);
    return {scene.Manager().ZdReleaseFile(handle), {}};
}

COutcome QueryHandle(CScene& scene) {
    FileInformation information = Untouched<FileInformation>();
    COutcome outcome{scene.Manager().ZdQueryFileInfo(scene.First(), &information), {}};
    if (outcome.code != 0 && !IsUntouched(information)) outcome.broken = "a failed query filled the record";
    return outcome;
}

COutcome QueryName(CScene& scene) {
    FileInformation information = Untouched<FileInformation>();
    return {scene.Manager().ZdQueryPathInfo(L"\\f", &information), {}};
}

COutcome QueryVolume(CScene& scene, BYTE request) {
    VolumeInformation information{};
    return {scene.Manager().ZdQueryVolumeInfo(request, &information), {}};
}

COutcome List(CScene& scene) {
    auto* const untouched = reinterpret_cast<DirectoryEntry*>(kUntouchedHandle);
    DirectoryEntry* entries = untouched;
    DWORD count = kUntouched;
    COutcome outcome{scene.Manager().ZdQueryDirContents(scene.First(), &entries, &count), {}};
    if (outcome.code != 0 && (entries != untouched || count != kUntouched)) {
        outcome.broken = "a failed listing touched its out arguments";
    }
    if (outcome.code == 0 && entries != nullptr) ::HeapFree(::GetProcessHeap(), 0, entries);
    return outcome;
}

CPrepare Renamed(const CPrepare& source, const std::vector<std::string>& target) {
    return [source, target](CScene& scene) {
        source(scene);
        scene.MakeFragments("g", target);
    };
}

std::function<COutcome(CScene&)> Rename(DWORD replace) {
    return [replace](CScene& scene) {
        return COutcome{scene.Manager().ZdRenameFile(scene.First(), L"\\g", replace), {}};
    };
}

}  // namespace

CSituations CloseSituations() {
    CSituations all;
    for (const CKind& kind : Kinds()) {
        all.push_back({kind.name, "ZdCloseFile", kind.prepare, [](CScene& scene) {
                           return COutcome{scene.Manager().ZdCloseFile(scene.First(), 0), {}};
                       }});
        all.push_back({kind.name + ", deleted", "ZdCloseFile", kind.prepare, [](CScene& scene) {
                           return COutcome{scene.Manager().ZdCloseFile(scene.First(), 1), {}};
                       }});
        all.push_back({kind.name, "ZdReleaseFile", kind.prepare, &Release});
        all.back().canRepeat = false;
    }
    return all;
}

CSituations InformationSituations() {
    CSituations all;
    for (const CKind& kind : Kinds()) {
        all.push_back({kind.name, "ZdQueryFileInfo", kind.prepare, &QueryHandle});
        all.push_back({kind.name, "ZdQueryPathInfo", kind.prepare, &QueryName});
    }
    for (const BYTE request : {BYTE{1}, BYTE{2}, BYTE{4}}) {
        all.push_back({"request " + std::to_string(request), "ZdQueryVolumeInfo", [](CScene&) {},
                       [request](CScene& scene) { return QueryVolume(scene, request); }});
    }
    all.push_back({"directory of three files", "ZdQueryDirContents",
                   [](CScene& scene) {
                       scene.MakeFragments("d/a", kThree);
                       scene.MakeFragments("d/b", kOne);
                       scene.Store().MakeDirectory("pool/d/sub");
                       scene.Open(L"\\d", 0x1, 1);
                   },
                   &List});
    all.push_back({"empty directory", "ZdQueryDirContents", Directory(false), &List});
    return all;
}

CSituations RenameSituations() {
    CSituations all;
    for (const CKind& kind : Kinds()) {
        all.push_back({kind.name, "ZdRenameFile", kind.prepare, Rename(0)});
        all.push_back({kind.name + ", nothing to replace", "ZdRenameFile", kind.prepare, Rename(1)});
        all.push_back({kind.name + ", replacing one fragment", "ZdRenameFile", Renamed(kind.prepare, kOne), Rename(1)});
        all.push_back(
            {kind.name + ", replacing three fragments", "ZdRenameFile", Renamed(kind.prepare, kThree), Rename(1)});
    }
    return all;
}

CSituations ChangeSituations() {
    constexpr std::int64_t kTime = 133000000000000000;
    CSituations all;
    for (const CKind& kind : Kinds()) {
        all.push_back({kind.name + ", attributes", "ZdSetFileBasicInfo", kind.prepare, [](CScene& scene) {
                           return COutcome{scene.Manager().ZdSetFileBasicInfo(scene.First(), 0, 0, 0, 0, 0x21), {}};
                       }});
        all.push_back(
            {kind.name + ", attributes and times", "ZdSetFileBasicInfo", kind.prepare, [](CScene& scene) {
                 return COutcome{scene.Manager().ZdSetFileBasicInfo(scene.First(), 0, kTime, kTime, 0, 0x21), {}};
             }});
    }
    return all;
}

}  // namespace zd::test
