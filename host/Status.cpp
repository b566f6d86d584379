// Status with printf-style messages.
#include "host/Status.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace tarn {
namespace {

std::string vformat(const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length <= 0)
        return std::string();
    std::vector<char> text(static_cast<size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, args);
    return std::string(text.data(), static_cast<size_t>(length));
}

} // namespace

Status::Status(ErrorCode code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    assign(Severity::Error, code, format, args);
    va_end(args);
}

Status::Status(Severity severity, ErrorCode code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    assign(severity, code, format, args);
    va_end(args);
}

void Status::setError(ErrorCode code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    assign(Severity::Error, code, format, args);
    va_end(args);
}

void Status::setWarning(ErrorCode code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    assign(Severity::Warning, code, format, args);
    va_end(args);
}

void Status::assign(Severity severity, ErrorCode code, const char* format, va_list args)
{
    severity_ = severity;
    code_ = code;
    message_ = vformat(format, args);
}

} // namespace tarn
