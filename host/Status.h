// Result reporting of the host framework: a status with code, severity and message.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

namespace tarn {

/// Error codes that the module reports to the host.
enum class ErrorCode : uint32_t {
    Ok = 0,
    InvalidAddressRange = 0x20009,   ///< a start address above the end address
    NoSourceLocations = 0x2000c,     ///< warning: no code area in an address range
    NoSourceFiles = 0x2000d,         ///< the object file names no source file
    ParserInitFailed = 0x20021,      ///< the parsed-file store could not be initialised
    StatementLookupFailed = 0x20023, ///< no address for a source statement
    EmptySymbolName = 0x20025,       ///< a symbol lookup without a name
    ObjectfileParseFailed = 0x20027, ///< the object file is not readable as UBROF
};

enum class Severity : uint32_t {
    None = 0,
    Info = 1,
    Warning = 2,
    Error = 3,
    Critical = 4,
};

class IStatus {
public:
    virtual ~IStatus() = default;
    virtual ErrorCode getErrorCode() const = 0;
    virtual Severity getSeverity() const = 0;
    virtual const std::string& getMessage() const = 0;
    /// True while neither an error nor a warning was set.
    virtual bool isOk() const = 0;
};

class Status : public IStatus {
public:
    Status() = default;
    /// An error with the default severity (Severity::Error).
    Status(ErrorCode code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    Status(Severity severity, ErrorCode code, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    void setError(ErrorCode code, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void setWarning(ErrorCode code, const char* format, ...) __attribute__((format(printf, 3, 4)));

    ErrorCode getErrorCode() const override { return code_; }
    Severity getSeverity() const override { return severity_; }
    const std::string& getMessage() const override { return message_; }
    bool isOk() const override { return severity_ == Severity::None; }

private:
    void assign(Severity severity, ErrorCode code, const char* format, va_list args);

    ErrorCode code_ = ErrorCode::Ok;
    Severity severity_ = Severity::None;
    std::string message_;
};

} // namespace tarn
