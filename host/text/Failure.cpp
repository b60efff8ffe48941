#include "text/Failure.h"

#include "text/Text.h"
#include "ZdvfsLoader.h"

namespace zd::host {

std::string Win32Text(DWORD code) {
    return zdvfs::ErrorText(code);
}

std::string DescribeFailure(std::string_view operation, DWORD code, std::wstring_view path) {
    return zdvfs::FailureText(operation, code, ToUtf8(path));
}

void ThrowFailure(std::string_view operation, DWORD code, std::wstring_view path) {
    throw CFailure(DescribeFailure(operation, code, path));
}

}  // namespace zd::host
