#include "support/error_code.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace MUtils {

struct ErrorCode::Detail {
    int code = 0;
    std::string operation;
    std::string message;
    ErrorCode cause;
};

namespace {

// Turns every conversion that ends in 'n' into plain text: "%n" -> "%%n". Flags, width and length modifiers
// go with it.
std::string withoutCountConversions(const char* format) {
    std::string safe;
    for (const char* p = format; *p != 0;) {
        if (*p != '%') {
            safe += *p++;
            continue;
        }
        const std::size_t modifiers = std::strspn(p + 1, "-+ #0123456789.*'hlLqjzt");
        const char* conversion = p + 1 + modifiers;
        if (*conversion == 'n') safe += '%';
        const char* end = *conversion == 0 ? conversion : conversion + 1;
        safe.append(p, end);
        p = end;
    }
    return safe;
}

std::string formatMessage(const char* format, std::va_list arguments) {
    if (format == nullptr) return {};
    const std::string safe = withoutCountConversions(format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, safe.c_str(), arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, safe.c_str(), again);
    va_end(again);
    return text;
}

}  // namespace

void ErrorCode::DeleteDetail::operator()(Detail* detail) const {
    delete detail;
}

ErrorCode::ErrorCode(const char* operation, int code, const char* format, ...) : detail_(new Detail) {
    std::va_list arguments;
    va_start(arguments, format);
    detail_->message = formatMessage(format, arguments);
    va_end(arguments);
    detail_->code = code;
    detail_->operation = operation != nullptr ? operation : "";
}

ErrorCode::ErrorCode(const ErrorCode& other)
    : detail_(other.detail_ != nullptr ? new Detail(*other.detail_) : nullptr) {}

ErrorCode& ErrorCode::operator=(const ErrorCode& other) {
    if (this != &other) detail_.reset(other.detail_ != nullptr ? new Detail(*other.detail_) : nullptr);
    return *this;
}

void ErrorCode::setError(const char* operation, int code, const char* format, ...) {
    auto detail = std::unique_ptr<Detail, DeleteDetail>(new Detail);
    std::va_list arguments;
    va_start(arguments, format);
    detail->message = formatMessage(format, arguments);
    va_end(arguments);
    detail->code = code;
    detail->operation = operation != nullptr ? operation : "";
    detail_ = std::move(detail);
}

void ErrorCode::setCause(ErrorCode cause) {
    ErrorCode* last = this;
    while (last->detail_ != nullptr)
        last = &last->detail_->cause;
    *last = std::move(cause);
}

const ErrorCode::Detail* ErrorCode::at(int index) const {
    const ErrorCode* error = index < 0 ? nullptr : this;
    for (; error != nullptr && index > 0; --index)
        error = error->cause();
    return error != nullptr ? error->detail_.get() : nullptr;
}

int ErrorCode::getError(int index) const {
    const Detail* detail = at(index);
    return detail != nullptr ? detail->code : 0;
}

const char* ErrorCode::operation(int index) const {
    const Detail* detail = at(index);
    return detail != nullptr ? detail->operation.c_str() : "";
}

const char* ErrorCode::message(int index) const {
    const Detail* detail = at(index);
    return detail != nullptr ? detail->message.c_str() : "";
}

const ErrorCode* ErrorCode::cause() const {
    return detail_ != nullptr && detail_->cause.detail_ != nullptr ? &detail_->cause : nullptr;
}

std::string ErrorCode::describe() const {
    std::string text;
    for (const ErrorCode* error = this; error != nullptr && !error->empty(); error = error->cause()) {
        if (!text.empty()) text += "; ";
        std::string message = error->message();
        while (!message.empty() && message.back() == '\n')
            message.pop_back();
        text +=
            std::string(error->operation()) + ": " + message + " (" + std::to_string(error->getError()) + ")";
    }
    return text;
}

}  // namespace MUtils
