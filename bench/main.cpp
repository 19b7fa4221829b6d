// Measures this module against the plain library calls for the same jobs and prints one table.

#include <OpenEXR/ImfThreading.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>

#include "bench/rows.h"

namespace {

struct Options {
    int rounds = 11;
    bool allBuckets = false;
    std::string only;  // names of groups, in a row
    std::string output;
    const char* memoryJob = nullptr;
};

void usage() {
    std::fputs(
        "usage: bench_rawimage [--rounds N] [--all-buckets] [--only GROUPS] [--output PREFIX]\n"
        "GROUPS: any of write,compressors,choices,queue,read,walk,frame,exr,tools,memory.\n"
        "PREFIX.txt and PREFIX.json receive the table.\n"
        "RAWIMAGE_BENCH_DATA names the folder with demo.rimg and, optionally, real.rimg.\n",
        stderr);
}

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--all-buckets") {
            options.allBuckets = true;
            continue;
        }
        if (i + 1 >= argc) return false;
        const char* value = argv[++i];
        if (name == "--rounds") {
            options.rounds = std::atoi(value);
        } else if (name == "--only") {
            options.only = value;
        } else if (name == "--output") {
            options.output = value;
        } else if (name == "--memory") {
            options.memoryJob = value;
        } else {
            return false;
        }
    }
    return options.rounds >= 9;
}

bench::Folder dataFolder() {
    const char* path = std::getenv("RAWIMAGE_BENCH_DATA");
    bench::Folder folder;
    folder.path = path != nullptr ? path : "build/bench-data";
    folder.demo = folder.file("demo.rimg");
    folder.real = folder.file("real.rimg");
    if (!std::filesystem::exists(folder.real)) folder.real.clear();
    bench::require(std::filesystem::exists(folder.demo), "there is no demo frame; make bench renders it");
    return folder;
}

int run(const Options& options) {
    const bench::Folder folder = dataFolder();
    if (options.memoryJob != nullptr) return bench::memoryChild(folder, options.memoryJob);
    Imf::setGlobalThreadCount(2);
    bench::Machine machine = bench::thisMachine();
    bench::Session session(options.rounds);
    const auto wanted = [&options](const char* group) {
        return options.only.empty() || options.only.find(group) != std::string::npos;
    };
    if (wanted("write")) bench::writeRows(session, folder, options.allBuckets);
    if (wanted("compressors")) bench::compressorRows(session, folder, options.allBuckets);
    if (wanted("choices")) bench::choiceRows(session, folder);
    if (wanted("queue")) bench::queueRows(session, folder);
    if (wanted("read")) bench::readRows(session, folder);
    if (wanted("walk")) bench::walkRows(session, folder);
    if (wanted("frame")) bench::frameRows(session, folder);
    if (wanted("exr")) bench::exrRows(session, folder);
    if (wanted("tools")) bench::toolRows(session, folder);
    if (wanted("memory")) bench::memoryRows(session, folder);
    machine.loadAfter = bench::loadAverage();

    const std::string text = asText(machine, session.results());
    std::fputs(text.c_str(), stdout);
    if (!options.output.empty()) {
        std::ofstream(options.output + ".txt") << text;
        std::ofstream(options.output + ".json") << asJson(machine, session.results());
    }
    // A goal that is missed is a finding; a wrong result is a fault.
    for (const bench::Result& result : session.results()) {
        if (!result.failure.empty()) return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        usage();
        return 2;
    }
    if (std::strcmp(RAWIMAGE_BUILD_TYPE, "Release") != 0) {
        std::fprintf(stderr,
                     "bench_rawimage: this is a %s build; figures of any but a Release build mean nothing\n",
                     RAWIMAGE_BUILD_TYPE);
        return 2;
    }
    try {
        return run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_rawimage: %s\n", error.what());
        return 1;
    }
}
