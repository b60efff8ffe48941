#include "HostileInput.h"

#include <algorithm>

namespace zd::test {

namespace {

constexpr std::size_t kLongestName = 32767;

const std::vector<std::wstring>& KnownNames() {
    static const std::vector<std::wstring> kNames = {
        L"a.txt",  L"A.TXT", L"big",      L"big;F1",       L"big;F2", L"dir",   L"dir\\b.txt", L"dir/b.txt",
        L"canary", L"pool",  L".refresh", L".refresh_all", L".zdvfs", L"x.edb", L"vdb_1",      L"QBX_ZD_MARKER"};
    return kNames;
}

const std::vector<std::wstring>& OddNames() {
    static const std::vector<std::wstring> kNames = {L"..",
                                                     L".",
                                                     L"...",
                                                     L". ",
                                                     L" .",
                                                     L"..\\..\\canary\\secret.txt",
                                                     L"..\\canary",
                                                     L"../../../windows",
                                                     L"..\\..\\..\\..\\..\\..\\..\\..\\canary\\secret.txt",
                                                     L"..;F1",
                                                     L".;F1",
                                                     L"C:",
                                                     L"C:\\windows",
                                                     L"Z:\\etc",
                                                     L"\\\\?\\C:\\",
                                                     L"\\\\?\\UNC\\server\\share",
                                                     L"\\\\server\\share",
                                                     L"\\??\\C:\\",
                                                     L"\\Device\\Null",
                                                     L"NUL",
                                                     L"CON",
                                                     L"aux.txt",
                                                     L"COM1",
                                                     L"LPT9.x",
                                                     L"a.txt:stream",
                                                     L"a.txt::$DATA",
                                                     L"*",
                                                     L"?",
                                                     L"<>|\"",
                                                     L"%00",
                                                     L"%s%n",
                                                     L"%p%x%5$n",
                                                     L"a.txt.",
                                                     L"a.txt ",
                                                     L"a.txt\\",
                                                     L"a.txt/",
                                                     L"\\\\.zdvfs\\",
                                                     L"\\\\.zdvfs\\pool\\dir\\"};
    return kNames;
}

std::wstring FragmentSuffix(CRandom& random) {
    static const std::vector<std::wstring> kEndings = {L"",
                                                       L"0",
                                                       L"1",
                                                       L"2",
                                                       L"01",
                                                       L"-1",
                                                       L"+1",
                                                       L" 1",
                                                       L"1 ",
                                                       L"1x",
                                                       L"0x1",
                                                       L"2147483646",
                                                       L"2147483647",
                                                       L"2147483648",
                                                       L"4294967297",
                                                       L"18446744073709551617",
                                                       L"99999999999999999999999999",
                                                       L"1;F1",
                                                       L"1;F",
                                                       L";F1",
                                                       L"\uFF11",
                                                       L"\u0661"};
    return (random.OneIn(4) ? L";f" : L";F") + random.Of(kEndings);
}

wchar_t AnyUnit(CRandom& random) {
    switch (random.Number(8)) {
        case 0:
            return static_cast<wchar_t>(1 + random.Number(31));  // controls
        case 1:
            return static_cast<wchar_t>(0xD800 + random.Number(0x800));  // halves of pairs
        case 2:
            return L"\\/:;.F*?\"<>| %"[random.Number(14)];
        case 3:
            return static_cast<wchar_t>(0xFFFF - random.Number(0x20));
        case 4:
            return static_cast<wchar_t>(0x7F + random.Number(0x800));
        case 5:
            return static_cast<wchar_t>(L'a' + random.Number(26));
        default:
            return static_cast<wchar_t>(1 + random.Number(0xFFFF));
    }
}

std::wstring AnyUnits(CRandom& random, std::size_t count) {
    std::wstring units;
    for (std::size_t i = 0; i < count; ++i) units += AnyUnit(random);
    return units;
}

// At the borders where lengths matter.
std::wstring LongPiece(CRandom& random) {
    static const std::vector<std::size_t> kLengths = {127,
                                                      128,
                                                      255,
                                                      256,
                                                      259,
                                                      260,
                                                      261,
                                                      511,
                                                      512,
                                                      1020,
                                                      1023,
                                                      1024,
                                                      1025,
                                                      2048,
                                                      4096,
                                                      8191,
                                                      16384,
                                                      32763,
                                                      kLongestName - 1,
                                                      kLongestName,
                                                      kLongestName + 1,
                                                      40000};
    const std::size_t length = random.Of(kLengths) + random.Number(3);
    switch (random.Number(5)) {
        case 0:
            return std::wstring(length, L'a');
        case 1:
            return std::wstring(length, L'\u00E9');
        case 2:
            return std::wstring(length, L'\uFFFD');
        case 3:
            return std::wstring(length, static_cast<wchar_t>(0xDC00));
        default:
            return AnyUnits(random, length);
    }
}

std::wstring DeepPiece(CRandom& random) {
    static const std::vector<std::wstring> kSteps = {L"\\a", L"\\..", L"\\.", L"\\", L"/", L"\\dir\\..", L"\\dir"};
    const std::wstring step = random.Of(kSteps);
    const std::size_t count = random.OneIn(20) ? kLongestName / step.size() : 1 + random.Number(200);
    std::wstring deep;
    for (std::size_t i = 0; i < count; ++i) deep += step;
    return deep;
}

std::wstring Piece(CRandom& random) {
    switch (random.Number(16)) {
        case 0:
        case 1:
        case 2:
        case 3:
            return random.Of(KnownNames());
        case 4:
        case 5:
        case 6:
            return random.Of(OddNames());
        case 7:
        case 8:
            return random.Of(KnownNames()) + FragmentSuffix(random);
        case 9:
            return FragmentSuffix(random);
        case 10:
            return DeepPiece(random);
        case 11:
            return random.OneIn(6) ? LongPiece(random) : std::wstring();
        default:
            return AnyUnits(random, random.Number(24));
    }
}

}  // namespace

std::wstring AnyName(CRandom& random) {
    std::wstring name = random.OneIn(12) ? L"" : random.OneIn(6) ? L"/" : L"\\";
    const std::size_t pieces = random.OneIn(8) ? random.Number(12) : 1 + random.Number(2);
    for (std::size_t i = 0; i < pieces; ++i) {
        name += Piece(random);
        if (random.OneIn(3)) name += random.OneIn(3) ? L'/' : L'\\';
    }
    if (random.OneIn(40)) name = LongPiece(random);
    // Around the widths of the names in the records.
    if (random.OneIn(20)) name = L"\\" + std::wstring(120 + random.Number(150), random.OneIn(2) ? L'a' : L'\u00E9');
    std::replace(name.begin(), name.end(), L'\0', L'\x01');
    return name;
}

std::int64_t AnyNumber(CRandom& random, std::int64_t unit) {
    const auto beside = [&](std::uint64_t value) { return static_cast<std::int64_t>(value + random.Number(5) - 2); };
    switch (random.Number(8)) {
        case 0:
            return static_cast<std::int64_t>(random.Next());
        case 1:
            return beside(std::uint64_t{1} << random.Number(64));
        case 2:
            return beside(static_cast<std::uint64_t>(unit) * random.Number(6));
        case 3:
            return beside(static_cast<std::uint64_t>(unit) * 0x7FFFFFFF);
        case 4:
            return beside(0x7FFFFFFFFFFFFFFF);
        case 5:
            return -static_cast<std::int64_t>(random.Number(1 << 20));
        default:
            return static_cast<std::int64_t>(random.Number(3 * static_cast<std::uint64_t>(unit)));
    }
}

std::string AnySegmentList(CRandom& random) {
    static const std::vector<std::string> kPieces = {"edb",
                                                     "EDB",
                                                     "vhd",
                                                     ":",
                                                     ",",
                                                     " ",
                                                     "0x",
                                                     "4194304",
                                                     "-1",
                                                     "64",
                                                     "99999999999999999999",
                                                     ";",
                                                     "::",
                                                     ",,",
                                                     "\t",
                                                     "\xC3\xA9",
                                                     "\xFF",
                                                     "0",
                                                     "x:1,",
                                                     "07",
                                                     "edb:1024,vhd:64"};
    std::string text;
    for (std::size_t i = random.Number(14); i > 0; --i) {
        text += random.OneIn(6) ? random.Bytes(random.Number(300)) : random.Of(kPieces);
    }
    std::erase(text, '\0');
    return text;
}

std::string AnyIniFile(CRandom& random) {
    static const std::vector<std::string> kPieces = {"[Main]",
                                                     "[",
                                                     "]",
                                                     "AgentID=",
                                                     "IFS_COMPRESSION=",
                                                     "ENCRYPTION=",
                                                     "RESTORE_DECRYPT_LOCAL=",
                                                     "PREFERRED_EXT_SEGKSIZE=",
                                                     "\n",
                                                     "\r\n",
                                                     "\r",
                                                     "=",
                                                     "\"",
                                                     "'",
                                                     ";",
                                                     "#",
                                                     " ",
                                                     "1",
                                                     "4294967295",
                                                     "\xEF\xBB\xBF",
                                                     "\xFF\xFE",
                                                     std::string(1, '\0'),
                                                     "\\"};
    std::string text = random.OneIn(4) ? "\xEF\xBB\xBF" : "";
    for (std::size_t i = random.Number(60); i > 0; --i) {
        const std::uint64_t kind = random.Number(16);
        text += kind == 0 ? random.Bytes(random.Number(2000)) : kind == 1 ? AnySegmentList(random) : random.Of(kPieces);
    }
    if (random.OneIn(30)) text += std::string(70000, '=');
    return text;
}

AnyValue AnyRegistryValue(CRandom& random) {
    static const std::vector<DWORD> kTypes = {
        REG_NONE, REG_SZ,       REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_DWORD_BIG_ENDIAN,
        REG_LINK, REG_MULTI_SZ, REG_QWORD,     4711};
    static const std::vector<std::size_t> kLengths = {0, 1, 2, 3, 4, 5, 7, 8, 255, 2046, 2047, 2048, 2049, 2050, 65535};
    AnyValue value{random.Of(kTypes), {}};
    const std::string bytes = random.Bytes(random.OneIn(2) ? 4 : random.Of(kLengths));
    value.data.assign(bytes.begin(), bytes.end());
    if (random.OneIn(2)) value.type = REG_DWORD;
    if (random.OneIn(4)) std::fill(value.data.begin(), value.data.end(), static_cast<std::uint8_t>(random.Number(2)));
    // Of a text of one byte Wine's registry looks at the byte in front of the reader's buffer.
    if (value.data.size() == 1) value.type = REG_BINARY;
    return value;
}

}  // namespace zd::test
