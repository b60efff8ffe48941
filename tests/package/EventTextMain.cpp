// Shows an event's text as the event viewer would, by what is registered for its source:
//   event_text SOURCE ID TEXT
#include <cstdio>
#include <exception>
#include <string>

#include "EventText.h"

int wmain(int count, wchar_t** words) {
    if (count != 4) {
        std::fprintf(stderr, "usage: event_text SOURCE ID TEXT\n");
        return 2;
    }
    try {
        const std::wstring file = zd::RegisteredMessageFile(words[1]);
        const DWORD id = std::stoul(words[2], nullptr, 16);
        const std::wstring text = zd::EventText(file, id, words[3]);
        std::printf("%ls\n%ls\n", file.c_str(), text.c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "event_text: %s\n", error.what());
        return 1;
    }
}
