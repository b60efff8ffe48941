#include "CommandTable.h"

namespace zd {

extern const Command kPutCommand;
extern const Command kGetCommand;
extern const Command kCatCommand;
extern const Command kWriteCommand;
extern const Command kCopyCommand;
extern const Command kAppendCommand;
extern const Command kTruncateCommand;
extern const Command kMakeDirectoryCommand;
extern const Command kRemoveCommand;
extern const Command kAclCommand;
extern const Command kSetupCommand;

namespace {

constexpr const Command* kCommands[] = {
    &kPutCommand,      &kGetCommand,           &kCatCommand,    &kWriteCommand, &kCopyCommand,  &kAppendCommand,
    &kTruncateCommand, &kMakeDirectoryCommand, &kRemoveCommand, &kAclCommand,   &kSetupCommand,
};

}  // namespace

std::span<const Command* const> Commands() {
    return kCommands;
}

}  // namespace zd
