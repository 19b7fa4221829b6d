#include "cli/output_file.h"

#include "cli/interrupt.h"
#include "cli/report.h"

namespace rimg {

namespace {

using MUtils::NewFile;

void check(const std::string& name, const ErrorCode& error) {
    if (error.empty()) return;
    const int code = error.getError();
    if (code > 0) throw outputFailure(name, code);
    const bool usage = code == NewFile::kIsInput || code == NewFile::kNotSeekable;
    throw Failure(usage ? ExitCode::kUsage : ExitCode::kFailure, name, error.message());
}

}  // namespace

OutputFile::OutputFile(const std::string& name, Kind kind, const std::vector<std::string>& inputs)
    : name_(name),
      standardOutput_(kind == Kind::kStream && (name == "-" || name == "/dev/stdout")),
      file_(&removedWhenKilled()) {
    refuseInputs(name, inputs);
    if (standardOutput_) return;
    if (name == "-") throw Failure(ExitCode::kUsage, name, NewFile::kNotSeekableText);
    const auto access = kind == Kind::kStream ? NewFile::Access::kStream : NewFile::Access::kSeek;
    check(name, file_.create(name, access));
}

void OutputFile::refuseInputs(const std::string& name, const std::vector<std::string>& inputs) {
    const bool dash = name == "-";
    check(dash ? "standard output" : name, NewFile::refuseInputs(dash ? "/dev/stdout" : name, inputs));
}

void OutputFile::lockName() {
    check(name_, file_.lockName());
}

void OutputFile::checkStop() const {
    if (!stopRequested()) return;
    throw Failure(ExitCode::kStopped, name(), file_.isBeside() ? "stopped; nothing was written" : "stopped");
}

bool OutputFile::commit() {
    check(name_, file_.finish());
    checkStop();
    check(name_, file_.commit());
    return file_.isDurable();
}

}  // namespace rimg
