// Connections, control requests, descriptors of objects.
#include <set>

#include "Scene.h"

namespace zd::test {

namespace {

constexpr char kOpenToAll[] = "O:BAG:BAD:(A;;FA;;;WD)";

CPrepare Object(bool isDirectory, bool isGuarded, bool shut) {
    return [=](CScene& scene) {
        if (isDirectory) {
            scene.Store().MakeDirectory("pool/f");
        } else {
            scene.MakeFragments("f", {"hello"});
        }
        if (isGuarded) scene.SetSddl("pool/f", kOpenToAll);
        const Handle handle = scene.Open(L"\\f", isDirectory ? 0x1 : 0x3, isDirectory ? 1 : 0);
        if (shut) scene.Shut(handle);
    };
}

COutcome Get(CScene& scene) {
    const auto untouched = reinterpret_cast<PSECURITY_DESCRIPTOR>(kUntouchedHandle);
    PSECURITY_DESCRIPTOR descriptor = untouched;
    COutcome outcome{scene.Manager().ZdGetSecurity(scene.First(), 7, &descriptor), {}};
    if (outcome.code != 0) {
        if (descriptor != untouched) outcome.broken = "a failed call answered a descriptor";
    } else if (::IsValidSecurityDescriptor(descriptor) == FALSE) {
        outcome.broken = "what was answered is no descriptor";
    } else {
        ::LocalFree(descriptor);
    }
    return outcome;
}

COutcome Set(CScene& scene) {
    const CDescriptor descriptor("O:BAG:BAD:(A;;FA;;;BA)(A;;FA;;;WD)");
    return {scene.Manager().ZdSetSecurity(scene.First(), 7, descriptor.Raw()), {}};
}

COutcome Connect(CScene& scene) {
    ConnectParameters parameters{};
    std::wstring(L"pool2").copy(parameters.poolName, 5);
    std::wstring(L"two").copy(parameters.secondName, 3);
    try {
        return {scene.Manager().ZdConnect(&parameters), {}};
    } catch (unsigned long thrown) {
        return {thrown, {}};
    }
}

std::uint64_t NoArguments() {
    static std::uint64_t slots[6] = {};
    return reinterpret_cast<std::uint64_t>(slots);
}

}  // namespace

CSituations SecuritySituations() {
    CSituations all;
    for (const bool isDirectory : {false, true}) {
        for (const bool isGuarded : {false, true}) {
            for (const bool shut : {false, true}) {
                const std::string name = std::string(isDirectory ? "directory" : "file") +
                                         (isGuarded ? ", guarded" : ", without descriptor") +
                                         (shut ? ", closed" : ", open");
                all.push_back({name, "ZdGetSecurity", Object(isDirectory, isGuarded, shut), &Get});
                all.push_back({name, "ZdSetSecurity", Object(isDirectory, isGuarded, shut), &Set});
            }
        }
    }
    return all;
}

CSituations ControlSituations() {
    CSituations all;
    all.push_back({"three levels", "ZdControlPath",
                   [](CScene& scene) {
                       for (const char* const path : {"a", "a/b", "a/b/c"}) {
                           scene.Store().MakeFile("pool/" + std::string(path) + "/.refresh");
                       }
                   },
                   [](CScene& scene) {
                       return COutcome{scene.Manager().ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\c\\file"), {}};
                   }});
    for (const bool shut : {false, true}) {
        all.push_back({shut ? "closed" : "open", "ZdHandleIoctl", Object(false, false, shut), [](CScene& scene) {
                           return COutcome{scene.Manager().ZdHandleIoctl(scene.First(), 77, NoArguments()), {}};
                       }});
    }
    all.push_back({"one pool", "ZdPathIoctl", [](CScene&) {},
                   [](CScene& scene) {
                       return COutcome{scene.Manager().ZdPathIoctl(77, NoArguments()), {}};
                   }});
    all.push_back({"settings", "ZdRefreshSettings", [](CScene&) {},
                   [](CScene& scene) {
                       scene.Manager().ZdRefreshSettings(0, false);
                       return COutcome();
                   }});
    all.push_back({"activity", "ZdRefreshSettings", [](CScene&) {},
                   [](CScene& scene) {
                       scene.Manager().ZdRefreshSettings(30, true);
                       return COutcome();
                   }});
    all.push_back({"pools", "ZdEnumerateSpaList",
                   [](CScene& scene) {
                       scene.Environment().Registry().CreateKey(std::wstring(kSpaListKey) + L"\\pool of a long name");
                   },
                   [](CScene& scene) {
                       std::set<std::wstring> names;
                       return COutcome{scene.Manager().ZdEnumerateSpaList(&names), {}};
                   }});
    return all;
}

CSituations ConnectSituations() {
    CSituations all;
    const auto fresh = [](CScene& scene) {
        scene.Store().Remove("pool2");
        scene.Store().MakeFile("pool2/top/QBX_ZD_MARKER");
        scene.UseFreshObject();
    };
    all.push_back({"fresh object", "ZdConnect", fresh, &Connect});
    all.push_back({"connected object", "ZdConnect",
                   [fresh](CScene& scene) {
                       fresh(scene);
                       EXPECT_EQ(0U, Connect(scene).code);
                   },
                   &Connect});
    all.push_back({"handles open", "ZdDisconnect",
                   [fresh](CScene& scene) {
                       fresh(scene);
                       EXPECT_EQ(0U, Connect(scene).code);
                       scene.Store().MakeFile("pool2/f", "hello");
                       scene.Store().MakeDirectory("pool2/d");
                       scene.Open(L"/f");
                       scene.Open(L"/d", 0x1, 1);
                   },
                   [](CScene& scene) {
                       scene.ForgetAll();
                       return COutcome{scene.Manager().ZdDisconnect(), {}};
                   }});
    return all;
}

CSituations LogSituations() {
    const auto write = [](CScene& scene) {
        for (const char* const text : {"one\n", "one\n", "one\n", "a longer line than a short text has room for\n"}) {
            scene.Manager().ZdLogMessage(1, text);
        }
        return COutcome();
    };
    const auto last = [](CScene& scene) {
        const std::vector<LogLine> lines = scene.Environment().TakeLog();
        return lines.empty() ? std::string("no line was written") : std::string();
    };
    const auto suppress = [](bool enabled) {
        return [enabled](CScene& scene) {
            scene.Environment().Logger().suppressor.enabled = enabled;
            scene.Environment().Logger().suppressor.maxMessages = 2;
        };
    };
    // The level is set anew, which is when repeats that have waited long are told.
    const auto repeat = [write, suppress](CScene& scene) {
        suppress(true)(scene);
        scene.Environment().Logger().suppressor.maxMessages = 1;
        scene.Environment().Logger().suppressor.lastSummary = 0;
        scene.Manager().ZdLogMessage(1, "repeated\n");
        scene.Manager().ZdLogMessage(1, "repeated\n");
    };
    const auto reload = [](CScene& scene) {
        const std::int32_t level = scene.Environment().Logger().level;
        scene.Manager().ZdRefreshSettings(0, false);
        scene.Environment().Logger().level = level;
        return COutcome();
    };
    return {{"plain", "ZdLogMessage", suppress(false), write, last},
            {"repeats folded", "ZdLogMessage", suppress(true), write, last},
            {"repeats that wait", "ZdRefreshSettings", repeat, reload}};
}

}  // namespace zd::test
