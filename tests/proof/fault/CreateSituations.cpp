// Creating and opening, in every disposition.
#include "Scene.h"

namespace zd::test {

namespace {

constexpr char kOpenToAll[] = "O:BAG:BAD:(A;;FA;;;WD)";

struct CObject {
    const char* name;
    std::vector<std::string> fragments;  // empty: missing
    bool isGuarded;                      // a descriptor is stored for it
};

struct CDisposition {
    const char* name;
    DWORD value;
};

constexpr CDisposition kDispositions[] = {{"supersede", kZdSupersede}, {"open", kZdOpen},
                                          {"create", kZdCreate},       {"open if", kZdOpenIf},
                                          {"overwrite", kZdOverwrite}, {"overwrite if", kZdOverwriteIf}};

COutcome Create(CScene& scene, DWORD disposition, DWORD isDirectory, DWORD access, bool brings) {
    const CDescriptor descriptor(kOpenToAll);
    Handle handle = kUntouchedHandle;
    DWORD action = kUntouched;
    FileInformation information = Untouched<FileInformation>();
    COutcome outcome;
    outcome.code =
        scene.Manager().ZdCreateFile(L"\\d\\o.edb", isDirectory, 0, FILE_ATTRIBUTE_ARCHIVE, 0, disposition, access, 0,
                                     brings ? descriptor.Raw() : nullptr, &handle, &action, &information);
    if (outcome.code == 0) {
        scene.Own(handle);
        if (action == kUntouched || IsUntouched(information)) outcome.broken = "an out argument was not filled";
    } else if (handle != kUntouchedHandle) {
        outcome.broken = "a failed create answered a handle";
    }
    return outcome;
}

// Whether the disposition works on the object.
bool Works(const CDisposition& disposition, bool exists) {
    if (disposition.value == kZdCreate) return !exists;
    return exists || (disposition.value != kZdOpen && disposition.value != kZdOverwrite);
}

}  // namespace

CSituations CreateSituations() {
    const CObject objects[] = {{"missing", {}, false},
                               {"one fragment", {"hello"}, false},
                               {"one fragment, guarded", {"hello"}, true},
                               {"three fragments, guarded", {"0123456789", "abcdefghij", "xyz"}, true}};
    CSituations all;
    for (const CObject& object : objects) {
        for (const CDisposition& disposition : kDispositions) {
            const bool exists = !object.fragments.empty();
            if (!Works(disposition, exists)) continue;
            for (const bool brings : {false, true}) {
                if (brings && exists) continue;
                all.push_back({std::string(disposition.name) + ", " + object.name + (brings ? ", with descriptor" : ""),
                               "ZdCreateFile",
                               [object](CScene& scene) {
                                   scene.Store().MakeDirectory("pool/d");
                                   scene.MakeFragments("d/o.edb", object.fragments);
                                   if (object.isGuarded) scene.SetSddl("pool/d/o.edb", kOpenToAll);
                               },
                               [value = disposition.value, brings](CScene& scene) {
                                   return Create(scene, value, 0, 0x3, brings);
                               }});
            }
        }
    }
    return all;
}

CSituations CreateDirectorySituations() {
    CSituations all;
    for (const bool exists : {false, true}) {
        for (const CDisposition& disposition : {kDispositions[1], kDispositions[2], kDispositions[3]}) {
            if (!Works(disposition, exists)) continue;
            all.push_back({std::string(disposition.name) + ", directory, " + (exists ? "existing" : "missing"),
                           "ZdCreateFile",
                           [exists](CScene& scene) {
                               scene.Store().MakeDirectory("pool/d");
                               if (exists) scene.Store().MakeDirectory("pool/d/o.edb");
                           },
                           [value = disposition.value](CScene& scene) { return Create(scene, value, 1, 0x1, false); }});
        }
    }
    return all;
}

}  // namespace zd::test
