// Sequences of operations as data and as text that can be replayed.
//
//   setup localengine=0 open=2 megabytes=1
//   plant name=4 fragment=16 size=100 seed=7
//   open h=0 name=4 how=1 access=3 attributes=128 descriptor=0
//   write h=0 at=90 length=30 seed=8
//
// Handles and names are numbers: `h` is a place for a handle, `name` an index of ModelNames(). Lines that begin with
// "#" are comments.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zd::test {

enum class EOp {
    kPlant,        // storage files as another installation left them
    kOpen,         // ZdCreateFile of a file
    kOpenDir,      // ZdCreateFile of a directory
    kClose,        // ZdCloseFile, `remove` with the delete flag
    kRelease,      // ZdReleaseFile
    kRead,         //
    kWrite,        //
    kSize,         // ZdSetFileSize
    kAppend,       // ZdAppendFile
    kRename,       //
    kInfo,         // ZdQueryFileInfo
    kPath,         // ZdQueryPathInfo
    kList,         // ZdQueryDirContents
    kBasic,        // ZdSetFileBasicInfo; times in FILETIME units
    kSetSecurity,  //
    kGetSecurity,  //
    kReconnect,    // `fresh`: with a new object
    kRestart,      // the process ends and another goes on; `kill`: without disconnecting
    kCheck,        // everything is compared
    kCount
};

struct Step {
    EOp op = EOp::kCheck;
    std::array<std::int64_t, 6> args{};
};

// The double keeps nothing over a restart: there it is a reconnect.
struct Setup {
    std::int64_t localEngine = 0;
    std::int64_t maxOpenFragments = 100;
    std::int64_t megabytes = 1;  // MaxFileSizeMB
};

struct Script {
    Setup setup;
    std::vector<Step> steps;
};

std::string StepText(const Step& step);
std::string ScriptText(const Script& script);
// Throws std::runtime_error with the line that does not read.
Script ParseScript(const std::string& text);

}  // namespace zd::test
