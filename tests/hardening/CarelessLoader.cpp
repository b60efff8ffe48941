// Loads what it is told to by the name alone, as no program should: shows that a planted library would be found.
#include <windows.h>

int wmain(int count, wchar_t** words) {
    int missing = 0;
    for (int i = 1; i < count; ++i) missing += ::LoadLibraryW(words[i]) == nullptr;
    return missing;
}
