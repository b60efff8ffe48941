#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <memory>
#include <vector>

#include "commands/RecordJson.h"
#include "CommandTable.h"
#include "text/Attributes.h"
#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Output.h"
#include "text/Text.h"
#include "text/Times.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct ListOptions {
    std::string remote = "/";
    bool isLong = false;
    bool recursive = false;
    bool all = false;
    bool json = false;
};

// Writes entries one by one, so that a large tree needs no memory.
class CListing {
public:
    CListing(CommandContext& context, const ListOptions& options)
        : m_manager(context.session.Manager()), m_options(options) {}

    void Write(const std::wstring& name) {
        const FileInformation information = QueryPath(m_manager, name);
        if (m_options.json) WriteOutput("[", 1);
        if (IsDirectory(information)) {
            WriteDirectory(name);
        } else {
            WriteFile(name, information);
        }
        if (m_options.json) WriteOutput(m_any ? "\n]\n" : "]\n", m_any ? 3 : 2);
        FlushOutput();
    }

private:
    void WriteFile(const std::wstring& name, const FileInformation& information) {
        if (m_options.json) return WriteJson(JsonOf(information), name, name.substr(name.rfind(L'\\') + 1));
        DirectoryEntry entry{};
        entry.lastWriteTime = information.lastWriteTime;
        entry.attributes = information.attributes;
        entry.size = information.size;
        WriteEntry(entry, name, std::to_string(entry.size).size());
    }

    void WriteDirectory(const std::wstring& name) {
        CheckInterrupted();
        std::vector<DirectoryEntry> entries = ListDirectory(m_manager, name);
        if (!m_options.all) std::erase_if(entries, [](const DirectoryEntry& entry) { return IsDots(NameOf(entry)); });
        if (m_options.recursive && !m_options.json) {
            const std::string heading = (m_any ? "\n" : "") + Printable(ToUtf8(name)) + ":\n";
            WriteOutput(heading.data(), heading.size());
            m_any = true;
        }
        std::uint64_t largest = 0;
        for (const DirectoryEntry& entry : entries) largest = std::max(largest, entry.size);
        for (const DirectoryEntry& entry : entries) {
            const std::wstring entryName = NameOf(entry);
            if (m_options.json) {
                WriteJson(JsonOf(entry), Below(name, entryName), entryName);
            } else {
                WriteEntry(entry, entryName, std::to_string(largest).size());
            }
        }
        if (!m_options.recursive) return;
        for (const DirectoryEntry& entry : entries) {
            const std::wstring entryName = NameOf(entry);
            // An entry whose name could not be told cannot be entered either.
            if (IsDirectory(entry) && !IsDots(entryName) && !entryName.empty()) WriteDirectory(Below(name, entryName));
        }
    }

    void WriteEntry(const DirectoryEntry& entry, const std::wstring& name, std::size_t width) {
        std::string line;
        if (m_options.isLong) {
            const std::string size = std::to_string(entry.size);
            line = AttributeLetters(entry.attributes) + "  " + std::string(width - size.size(), ' ') + size + "  " +
                   FormatTime(entry.lastWriteTime) + "  ";
        }
        line += Printable(ToUtf8(name)) + (IsDirectory(entry) ? "\\\n" : "\n");
        WriteOutput(line.data(), line.size());
    }

    void WriteJson(const CJson& record, const std::wstring& path, const std::wstring& name) {
        CJson json;
        json.Set("path", ToUtf8(path));
        json.Set("name", ToUtf8(name));
        json.SetAll(record);
        const std::string line = (m_any ? ",\n " : "\n ") + json.Line();
        WriteOutput(line.data(), line.size());
        m_any = true;
    }

    IProtocolManager& m_manager;
    const ListOptions& m_options;
    bool m_any = false;  // something stands above
};

CommandAction DescribeList(CSyntax command) {
    auto options = std::make_shared<ListOptions>();
    const CArgument given =
        command.AddOption("REMOTE", options->remote, "The directory or file (default: the current one, or the top)")
            .TypeName("");
    command.AddFlag("-l,--long", options->isLong, "Attributes, size, and time of the last change too");
    command.AddFlag("-R,--recursive", options->recursive, "The directories below too");
    command.AddFlag("-a,--all", options->all, "\".\" and \"..\" too");
    command.AddFlag("--json", options->json, "An array of objects, with everything that is known");
    command.Footer(
        "A file of many fragments is one line with its whole size. Directories have a \"\\\" behind their names. Of\n"
        "names that differ only in case the first one is shown. Times are UTC. The letters of -l: Directory,\n"
        "Read-only, Hidden, System, Archive, Temporary, not Indexed, Normal.\n"
        "\n"
        "Examples:\n"
        "  zdhost ls -l /docs\n"
        "  zdhost ls -R --json / > pool.json");
    return [options, given](CommandContext& context) {
        // In the shell it is the current directory that is listed where nothing is named.
        const bool current = !given.IsGiven() && !context.directory.empty();
        const std::wstring name = current ? context.directory : RemoteName(options->remote, context.directory);
        CListing(context, *options).Write(name);
    };
}

}  // namespace

extern const Command kListCommand;
const Command kListCommand{"ls", "List a directory", &DescribeList};

}  // namespace zd::host
