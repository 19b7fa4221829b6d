#pragma once

#include <memory>
#include <string>

#include "../rawimage/export.h"

namespace MUtils {

// The result of a writing operation: empty for success, else the failing operation's own name, a numeric code
// (-1 for the module's own failures, the stream's positive code for failures to open), a formatted message
// and, when another operation failed underneath, that error as its cause. An empty one costs a pointer. A
// value: copies are deep, safe to hand to another thread.
class [[nodiscard]] RAWIMAGE_EXPORT ErrorCode {
  public:
    ErrorCode() = default;

    // printf-style. The conversion %n is not a conversion here: it is copied as it is and nothing is ever
    // written through an argument (an argument given for it is left over, so it belongs at the end). The
    // message may be of any length; a null format or operation counts as "".
    ErrorCode(const char* operation, int code, const char* format, ...);

    ErrorCode(const ErrorCode& other);
    ErrorCode(ErrorCode&& other) noexcept = default;
    ErrorCode& operator=(const ErrorCode& other);
    ErrorCode& operator=(ErrorCode&& other) noexcept = default;
    ~ErrorCode() = default;

    // Replaces what is held, the cause included.
    void setError(const char* operation, int code, const char* format, ...);

    // Chains `cause` under this error: at the end of the chain when there is one already. On an empty error,
    // or with an empty cause, the non-empty one of the two remains.
    void setCause(ErrorCode cause);

    // True for success.
    bool empty() const { return detail_ == nullptr; }

    // True for an error, as with std::error_code.
    explicit operator bool() const { return detail_ != nullptr; }

    // The code, operation and message at `index` of the chain: 0 this error, 1 its cause, 2 the cause's
    // cause. 0 and "" past the end of the chain and on success. The pointers live as long as this object is
    // unchanged.
    int getError(int index = 0) const;
    const char* operation(int index = 0) const;
    const char* message(int index = 0) const;

    // The error underneath, or null.
    const ErrorCode* cause() const;

    // "operation: message (code)" of every error in the chain, joined by "; ". "" on success.
    std::string describe() const;

  private:
    struct Detail;
    struct DeleteDetail {
        void operator()(Detail* detail) const;
    };

    const Detail* at(int index) const;

    std::unique_ptr<Detail, DeleteDetail> detail_;
};

}  // namespace MUtils

using MUtils::ErrorCode;
