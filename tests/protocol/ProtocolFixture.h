// What the tests of configuration and connection share.
#pragma once

#include <algorithm>
#include <cstring>

#include "harness/PluginFixture.h"

namespace zd::test {

class CProtocolTest : public CDoubleTest {
protected:
    // A file of the agent's directory as the ini reader is given it.
    std::string AgentFile(const std::string& name) { return Narrow(Environment().AgentFolder()) + name; }

    // A loose key of zd.conf.
    void SetAgentValue(const std::string& key, const std::string& value) {
        Hul().SetValue(AgentFile("zd.conf"), "__dummy__section__", key, value);
    }

    // Makes a pool's configuration file, with its AgentID where one is given. Answers its full path.
    std::wstring MakePoolFile(const std::wstring& name, const char* agentId) {
        const std::wstring path = Environment().AgentFolder() + name;
        WriteFileContent(path, "[Main]\n");
        if (agentId != nullptr) Hul().SetValue(Narrow(path), "Main", "AgentID", agentId);
        return path;
    }

    static std::wstring PoolKey(const std::wstring& pool) { return std::wstring(kSpaListKey) + L"\\" + pool; }

    std::wstring RegisteredFile(const std::wstring& pool) {
        const auto value = Registry().Get(PoolKey(pool), L"ConfigFilePath");
        return value ? value->Text() : std::wstring(L"(none)");
    }

    // The last call of a function since the logs were cleared.
    Call LastCall(const std::string& function) {
        const std::vector<Call> calls = Double().Calls();
        const auto last = std::find_if(calls.rbegin(), calls.rend(),
                                       [&function](const Call& call) { return call.function == function; });
        if (last != calls.rend()) return *last;
        ADD_FAILURE() << function << " was not called";
        return Call();
    }

    // Connects afresh and answers what stands behind `name` in the block that was mounted: "0x232", "\"pool\"", "null".
    std::string ConnectedBlock(const std::string& name, const std::wstring& pool = L"pool") {
        ClearLogs();
        EXPECT_EQ(0U, Connect(pool));
        return BlockValue(name);
    }

    std::string BlockValue(const std::string& name) {
        const std::string text = LastCall("ZdvfsMountV1").arguments;
        const std::size_t begin = text.find(name + "=");
        if (begin == std::string::npos) return "no such value";
        const std::size_t value = begin + name.size() + 1;
        const std::size_t end = text[value] == '"' ? text.find('"', value + 1) + 1 : text.find_first_of(",}", value);
        return text.substr(value, end - value);
    }

    // The log level in a pool's block as it stands in memory now.
    std::uint32_t BlockLevel(const std::string& pool = "pool") {
        std::uint32_t level = 0;
        const void* const block = Double().MountBlock(pool);
        if (block == nullptr) return 0xCDCDCDCD;
        std::memcpy(&level, static_cast<const char*>(block) + 16, sizeof(level));
        return level;
    }

    // The flags with which the storage file of a new handle was opened.
    std::string OpenFlags(const std::wstring& name, const CreateOptions& options = CreateOptions()) {
        const Created created = Create(name, options);
        EXPECT_EQ(0U, created.code);
        const std::string text = LastCall("ZdvfsOpen").arguments;
        if (created.code == 0) Close(created.handle);
        const std::size_t begin = text.find("\", ") + 3;
        return text.substr(begin, text.find(',', begin) - begin);
    }
};

}  // namespace zd::test
