#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "bench/harness.h"
#include "support/compression.h"

namespace bench {

namespace {

constexpr double kMiB = 1 << 20;

template <class... Values>
std::string format(const char* text, Values... values) {
    char line[512];
    std::snprintf(line, sizeof line, text, values...);
    return line;
}

std::string processorName() {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        const std::size_t colon = line.find(": ");
        if (line.rfind("model name", 0) == 0 && colon != std::string::npos) return line.substr(colon + 2);
    }
    return "unknown";
}

std::string goalText(const Goal& goal) {
    switch (goal.kind) {
        case Goal::kTimeAtMost: return format("time <= %.2f", goal.value);
        case Goal::kSpeedAtLeast: return format("speed >= %.2f", goal.value);
        case Goal::kBytesAtMost: return format("<= %.1f MiB", goal.value / kMiB);
        case Goal::kNone: break;
    }
    return "none";
}

std::string verdict(const Result& result) {
    if (result.goal.kind == Goal::kNone) return "";
    if (result.disturbed()) return "unknown";
    return result.met() ? "yes" : "no";
}

std::string amount(const Result& result, double value) {
    return result.goal.kind == Goal::kBytesAtMost ? format("%.1f MiB", value / kMiB)
                                                  : format("%.1f ms", value * 1e3);
}

std::string quoted(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') json += '\\';
        if (static_cast<unsigned char>(c) >= 0x20) json += c;
    }
    return json + '"';
}

}  // namespace

Machine thisMachine() {
    Machine machine;
    utsname system{};
    if (uname(&system) == 0)
        machine.kernel = format("%s %s %s", system.sysname, system.release, system.machine);
    machine.processor = processorName();
    machine.processors = static_cast<int>(std::thread::hardware_concurrency());
#if defined(__clang__)
    machine.compiler = __VERSION__;
#else
    machine.compiler = std::string("GCC ") + __VERSION__;
#endif
    machine.buildType = RAWIMAGE_BUILD_TYPE;
    machine.decompressor = MUtils::decompressorName();
    machine.loadBefore = loadAverage();
    return machine;
}

double loadAverage() {
    double load = 0;
    return getloadavg(&load, 1) == 1 ? load : -1;
}

std::string asText(const Machine& machine, const std::vector<Result>& results) {
    std::string text = format("machine   %s, %d processors, %s\n", machine.processor.c_str(),
                              machine.processors, machine.kernel.c_str()) +
                       format("build     %s, %s, reading with %s\n", machine.compiler.c_str(),
                              machine.buildType.c_str(), machine.decompressor.c_str()) +
                       format("load      %.2f before, %.2f after\n\n", machine.loadBefore, machine.loadAfter);
    text +=
        "ratio: median of the rounds, in the goal's terms; time is ours over plain, speed plain over ours\n"
        "cpu:   the same ratio of processor time; busy: processors that ours and plain had\n"
        "met:   unknown when other programs kept the plain side from its processors\n\n";
    text += format("%-46s %-38s %7s %15s %7s %9s %-13s %-7s %12s %12s\n", "row", "against", "ratio",
                   "quartiles", "cpu", "busy", "goal", "met", "ours", "plain");
    for (const Result& r : results) {
        text += format("%-46s %-38s ", r.name.c_str(), r.against.c_str());
        if (!r.failure.empty()) {
            text += "failed: " + r.failure + '\n';
            continue;
        }
        const bool timed = r.goal.kind != Goal::kBytesAtMost;
        const std::string quartiles = timed ? format("%.3f .. %.3f", r.lowerQuartile, r.upperQuartile) : "";
        const std::string processor = timed ? format("%.3f", r.processorRatio) : "";
        const std::string busy = timed ? format("%.1f, %.1f", r.oursProcessors, r.plainProcessors) : "";
        text += format("%7.3f %15s %7s %9s %-13s %-7s %12s %12s\n", r.ratio, quartiles.c_str(),
                       processor.c_str(), busy.c_str(), goalText(r.goal).c_str(), verdict(r).c_str(),
                       amount(r, r.ours).c_str(), amount(r, r.plain).c_str());
    }
    return text;
}

std::string asJson(const Machine& machine, const std::vector<Result>& results) {
    std::string json =
        "{\n  \"machine\": {\"processor\": " + quoted(machine.processor) +
        format(", \"processors\": %d, \"kernel\": ", machine.processors) + quoted(machine.kernel) +
        ", \"compiler\": " + quoted(machine.compiler) + ", \"build\": " + quoted(machine.buildType) +
        ", \"decompressor\": " + quoted(machine.decompressor) +
        format(", \"loadBefore\": %.2f, \"loadAfter\": %.2f},\n", machine.loadBefore, machine.loadAfter) +
        "  \"rows\": [";
    const char* separator = "\n";
    for (const Result& r : results) {
        json +=
            separator + std::string("    {\"row\": ") + quoted(r.name) +
            ", \"against\": " + quoted(r.against) + ", \"goal\": " + quoted(goalText(r.goal)) +
            format(", \"met\": \"%s\", \"failure\": ", r.failure.empty() ? verdict(r).c_str() : "failed") +
            quoted(r.failure) +
            format(", \"ratio\": %.4f, \"lowerQuartile\": %.4f, \"upperQuartile\": %.4f, ", r.ratio,
                   r.lowerQuartile, r.upperQuartile) +
            format("\"processorRatio\": %.4f, \"ours\": %.9g, \"plain\": %.9g, \"unit\": \"%s\", ",
                   r.processorRatio, r.ours, r.plain,
                   r.goal.kind == Goal::kBytesAtMost ? "bytes" : "seconds") +
            format("\"oursProcessors\": %.3f, \"plainProcessors\": %.3f, \"rounds\": %d}", r.oursProcessors,
                   r.plainProcessors, r.rounds);
        separator = ",\n";
    }
    return json + "\n  ]\n}\n";
}

}  // namespace bench
