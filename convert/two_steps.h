#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "convert/convert_error.h"

namespace MUtils {
inline namespace v1 {

// Runs a step. When it throws, enters the reason in the report and returns false; std::bad_alloc passes
// through.
bool runStep(ConvertReport& report, const std::function<void()>& step);

// Throws ConvertError (kWriteFailed) when the output is one of the inputs.
void refuseSameFile(const std::string& output, const std::vector<std::string>& inputs);

// Both steps, and the report.
ConvertReport runBoth(Conversion& conversion, const std::string& output);

// A conversion whose work is done by a Job: its constructor is the first step, its run() the second one.
//
//     Job(const std::string& input, const Options& options, ConvertReport& report);
//     std::vector<std::string> inputs() const;
//     ConvertState run(const std::string& output);  // of the output that is written
template <class Job, class Options>
class TwoSteps final : public Conversion {
  public:
    TwoSteps(std::string input, Options options) : input_(std::move(input)), options_(std::move(options)) {}

    bool prepare() override {
        return runStep(report_, [this] { job_ = std::make_unique<Job>(input_, options_, report_); });
    }

    bool run(const std::string& output) override {
        return job_ != nullptr && runStep(report_, [&] {
                   refuseSameFile(output, job_->inputs());
                   report_.state = job_->run(output);
                   report_.written = true;
               });
    }

    const ConvertReport& report() const override { return report_; }

  private:
    const std::string input_;
    const Options options_;
    ConvertReport report_;
    std::unique_ptr<Job> job_;
};

}  // namespace v1
}  // namespace MUtils
