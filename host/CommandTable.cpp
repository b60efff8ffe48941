#include "CommandTable.h"

namespace zd::host {

extern const Command kPutCommand;
extern const Command kGetCommand;
extern const Command kCatCommand;
extern const Command kWriteCommand;
extern const Command kCopyCommand;
extern const Command kAppendCommand;
extern const Command kTruncateCommand;
extern const Command kListCommand;
extern const Command kStatCommand;
extern const Command kMoveCommand;
extern const Command kAttribCommand;
extern const Command kTouchCommand;
extern const Command kMakeDirectoryCommand;
extern const Command kRemoveCommand;
extern const Command kAclCommand;
extern const Command kSizesCommand;
extern const Command kLabelCommand;
extern const Command kPoolsCommand;
extern const Command kIoctlCommand;
extern const Command kControlCommand;
extern const Command kRefreshCommand;
extern const Command kSayCommand;
extern const Command kLogCommand;
extern const Command kTagCommand;
extern const Command kSetupCommand;
extern const Command kConfigCommand;

namespace {

constexpr const Command* kCommands[] = {
    &kPutCommand,           &kGetCommand,     &kCatCommand,     &kWriteCommand, &kCopyCommand,   &kAppendCommand,
    &kTruncateCommand,      &kListCommand,    &kStatCommand,    &kMoveCommand,  &kAttribCommand, &kTouchCommand,
    &kMakeDirectoryCommand, &kRemoveCommand,  &kAclCommand,     &kSizesCommand, &kLabelCommand,  &kPoolsCommand,
    &kIoctlCommand,         &kControlCommand, &kRefreshCommand, &kSayCommand,   &kLogCommand,    &kTagCommand,
    &kSetupCommand,         &kConfigCommand,
};

}  // namespace

std::span<const Command* const> Commands() {
    return kCommands;
}

}  // namespace zd::host
