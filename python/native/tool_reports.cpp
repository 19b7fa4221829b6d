#include "python/native/bindings.h"
#include "python/native/report.h"

#include "convert/conversion.h"
#include "convert/from_exr/diff_files.h"

#include "rawimage/tools/hash.h"
#include "rawimage/tools/merge.h"
#include "rawimage/tools/recover.h"
#include "rawimage/tools/stats.h"
#include "rawimage/tools/verify.h"
#include "support/new_file.h"

namespace rawimage_python {

namespace {

template <class Value>
const char* nameOfState(const Value& value) {
    return stateName(value.state);
}

// None for the -1 of "nowhere".
template <auto Member, class Value>
py::object offsetOf(const Value& value) {
    return value.*Member >= 0 ? py::object(py::int_(value.*Member)) : py::none();
}

void bindVerify(py::module_& module) {
    using MUtils::VerifyReport;
    Report<VerifyReport>(module, "VerifyReport",
                         "Whether a file is what was written, and whether it is all there.")
        .field("state", nameOfState<VerifyReport>,
               "\"good\", \"unfinished\", \"incomplete\", \"damaged\" or \"not this format\"")
        .field("cause", &VerifyReport::cause, "why it is not good; \"\" when it is")
        .field("offset", offsetOf<&VerifyReport::causeOffset, VerifyReport>,
               "where that shows in the file, or None")
        .field("faults", &VerifyReport::faults, "list of Fault: what is damaged or in doubt")
        .field("further_faults", &VerifyReport::furtherFaults, "how many more there are")
        .field("repaired", &VerifyReport::repaired,
               "list of Fault: damaged headers that are known from elsewhere")
        .field("area", &VerifyReport::area, "Box of the pixels to render")
        .field("missing", &VerifyReport::missing, "list of Missing, of the channels that lack pixels")
        .field("missing_in_any", &VerifyReport::missingInAny, "Boxes that some channel lacks: what to render")
        .field("lacks_channels", &VerifyReport::lacksChannels, "the channel list is missing")
        .field("tags", &VerifyReport::tags, "sound records of the file")
        .field("file_bytes", &VerifyReport::fileBytes, "length of the file")
        .field("being_written", &VerifyReport::beingWritten, "a writer has the file open")
        .def_property_readonly("_stopped", [](const VerifyReport& r) { return r.stopped; });
}

void bindRecover(py::module_& module) {
    using MUtils::RecoverReport;
    Report<RecoverReport>(module, "RecoverReport", "What a recovery has saved and lost.")
        .field("state", nameOfState<RecoverReport>, "\"good\", or why there is no output")
        .field(
            "cause",
            [](const RecoverReport& r) { return r.error.empty() ? r.cause : outputErrorText(r.error); },
            "of a state that is not good")
        .field("tags_kept", &RecoverReport::tagsKept, "records of the input that were kept")
        .field("tags_of_pixels", &RecoverReport::tagsOfPixels, "of these, buckets of channels")
        .field("bytes_kept", &RecoverReport::bytesKept, "their bytes")
        .field("lost", &RecoverReport::lost, "list of Fault: bytes of the input that are not in the output")
        .field("cut_from", offsetOf<&RecoverReport::cutFrom, RecoverReport>,
               "where a torn end began, or None")
        .field("repaired", &RecoverReport::repaired, "list of Fault: headers that were repaired")
        .field("doubts", &RecoverReport::doubts, "list of Fault: contradictions")
        .field("lacks", &RecoverReport::lacks, "the output lacks something that the input had")
        .field("lacks_resolution", &RecoverReport::lacksResolution, "`like` or `size` supplies it")
        .field("lacks_channels", &RecoverReport::lacksChannels, "`like` supplies them")
        .field("lacks_pixels", &RecoverReport::lacksPixels, "some channel lacks pixels")
        .field("changed", &RecoverReport::changed, "False when in place nothing was to be done");
}

void bindMerge(py::module_& module) {
    using MUtils::MergeRepeat;
    using MUtils::MergeReport;
    using MUtils::MergeSetAside;
    Report<MergeRepeat>(module, "MergeRepeat", "Buckets that were taken from another input.")
        .field("file", &MergeRepeat::file, "the input that has them, too")
        .field("taken_from", &MergeRepeat::takenFrom, "the input that they were taken from")
        .field("tags", &MergeRepeat::tags, "how many, by channel")
        .field("damaged", &MergeRepeat::damaged, "of these, damaged ones in `file`");
    Report<MergeSetAside>(module, "MergeSetAside", "A damaged input of which nothing was taken.")
        .field("file", &MergeSetAside::file, "the input")
        .field("cause", &MergeSetAside::cause, "what is wrong with it");
    Report<MergeReport>(module, "MergeReport", "What a merge has done.")
        .field("state", nameOfState<MergeReport>, "\"good\", or why there is no output")
        .field("file", &MergeReport::file, "the input that the state is about, if it is one")
        .field(
            "cause",
            [](const MergeReport& r) { return r.error.empty() ? r.cause : outputErrorText(r.error); },
            "of a state that is not good")
        .field("tags", &MergeReport::tags, "buckets of channels in the output")
        .field("unfinished", &MergeReport::unfinished, "inputs that were never finished")
        .field("repeats", &MergeReport::repeats, "list of MergeRepeat")
        .field("set_aside", &MergeReport::setAside, "list of MergeSetAside")
        .field("contained", &MergeReport::contained,
               "with verify: inputs of which the output has every bucket")
        .field("frame", &MergeReport::frame, "Box of the frame")
        .field("area", &MergeReport::area, "Box that the pieces are to cover")
        .field("holes", &MergeReport::holes, "Boxes that some channel lacks of it");
}

void bindConvert(py::module_& module) {
    using MUtils::ConvertNote;
    using MUtils::ConvertReport;
    Report<ConvertNote>(module, "ConvertNote", "A fact about a conversion; str() is its text.")
        .field("kind", &ConvertNote::kind, "a word for programs, such as \"overscan\"")
        .field("file", &ConvertNote::file, "that it is about; \"\" for the output")
        .field("text", &ConvertNote::text, "for people to read")
        .field("names", &ConvertNote::names, "of attributes, records or channels")
        .field("count", &ConvertNote::count, "of pixels, buckets or faults, or None")
        .field("offset", &ConvertNote::offset, "in the file, or None")
        .def("__str__", [](const ConvertNote& note) { return note.text; });
    Report<ConvertReport>(module, "ConvertReport", "What a conversion has done and lost.")
        .field("state", nameOfState<ConvertReport>, "\"good\", \"incomplete\", or why there is no output")
        .field("cause", &ConvertReport::cause, "of a state without an output")
        .field("file", &ConvertReport::file, "that the cause is about; \"\" for the output")
        .field("offset", &ConvertReport::offset, "where the cause lies, or None")
        .field("written", &ConvertReport::written, "the output is whole")
        .field("losses", &ConvertReport::losses, "list of ConvertNote: what the output lacks of the input")
        .field("remarks", &ConvertReport::remarks, "list of ConvertNote: no losses")
        .field("frame", &ConvertReport::frame, "Box of the raw image")
        .field(
            "origin", [](const ConvertReport& r) { return std::make_pair(r.originX, r.originY); },
            "(x, y) of its first pixel in the OpenEXR file")
        .field("window", &ConvertReport::window, "Box of the pixels that the input has")
        .field("channels", &ConvertReport::channels, "how many are in the output")
        .field("regions", &ConvertReport::regions, "buckets, tiles or frames that were written");
}

// What the tools that go over all pixels have in common.
template <class Value>
Report<Value>& withFrameFields(Report<Value>& report) {
    report.field("state", nameOfState<Value>, "of the file, as of VerifyReport")
        .field(
            "cause", [](const Value& r) { return r.refused.empty() ? r.cause : r.refused; },
            "why it is not good, or why there is no result")
        .field("offset", offsetOf<&Value::causeOffset, Value>, "where that shows in the file, or None")
        .field("frame", &Value::frame, "Box of the frame")
        .field("area", &Value::area, "Box of the pixels that count")
        .field("damaged", &Value::damaged, "list of Fault: buckets that cannot be decoded")
        .def_property_readonly("_stopped", [](const Value& r) { return r.stopped; });
    report.def_property_readonly("_unmatched", [](const Value& r) { return r.unmatched; });
    report.def_property_readonly("_done", [](const Value& r) { return r.done(); });
    return report;
}

void bindStats(py::module_& module) {
    using namespace MUtils;
    Report<ValueCount>(module, "ValueCount", "Values of a kind.")
        .field("count", &ValueCount::count, "how many there are")
        .field(
            "first",
            [](const ValueCount& v) {
                return v.count > 0 ? py::object(py::make_tuple(v.x, v.y)) : py::none();
            },
            "(x, y) of the first pixel that has one, or None");
    Report<ValueStats>(module, "ValueStats", "The values of one component.")
        .field("name", &ValueStats::name, "such as \"R\"; \"\" of a channel of one component")
        .field("min", &ValueStats::min, "of the finite values")
        .field("max", &ValueStats::max, "of the finite values")
        .field("mean", &ValueStats::mean, "of the finite values")
        .field("deviation", &ValueStats::deviation, "standard deviation of the finite values")
        .field("finite", &ValueStats::finite, "how many are neither NaN nor infinite")
        .field("nan", &ValueStats::nan, "ValueCount of NaN")
        .field("plus_inf", &ValueStats::plusInf, "ValueCount of +infinity")
        .field("minus_inf", &ValueStats::minusInf, "ValueCount of -infinity")
        .field("negative", &ValueStats::negative, "ValueCount of those below zero")
        .field("zero", &ValueStats::zero, "how many are zero");
    Report<ChannelStatistics>(module, "ChannelStats", "What the values of a channel are like.")
        .field("channel", &ChannelStatistics::channel, "Channel")
        .field("pixels", &ChannelStatistics::pixels, "that have values")
        .field("components", &ChannelStatistics::components, "list of ValueStats")
        .field(
            "ids", [](const ChannelStatistics& c) { return c.ids ? py::cast(c.ids->count) : py::none(); },
            "of type \"int\": how many different ones there are, at most 2**24; else None")
        .field(
            "more_ids", [](const ChannelStatistics& c) { return c.ids && c.ids->more; },
            "there are more than 2**24");
    Report<StatsReport> stats(module, "StatsReport", "What the values of a frame are like.");
    withFrameFields(stats).field("channels", &StatsReport::channels, "list of ChannelStats");
    Report<ChannelHash>(module, "ChannelHash", "The hash of a channel.")
        .field("channel", &ChannelHash::channel, "Channel")
        .field("hash", &ChannelHash::hash, "32 hexadecimal digits");
    Report<HashReport> hash(module, "HashReport", "One hash of what a frame shows; str() gives it.");
    withFrameFields(hash)
        .field("hash", &HashReport::hash, "32 hexadecimal digits")
        .field("channels", &HashReport::channels, "list of ChannelHash")
        .def("__str__", [](const HashReport& r) { return r.hash; });
}

void bindDiff(py::module_& module) {
    using namespace MUtils;
    Report<DiffNumbers>(module, "DiffNumbers", "How far numbers differ.")
        .field("maximum", &DiffNumbers::maximum, "the largest difference")
        .field("mean", &DiffNumbers::mean, "the mean difference")
        .field("rms", &DiffNumbers::rms, "the root of the mean square")
        .field("psnr", &DiffNumbers::psnr, "decibels, for a peak of 1");
    Report<DiffPlace>(module, "DiffPlace", "Where values differ.")
        .field("x", &DiffPlace::x, "the pixel")
        .field("y", &DiffPlace::y, "the pixel")
        .field("component", &DiffPlace::component, "the component")
        .field("values", &DiffPlace::values, "both values");
    Report<ChannelDiff>(module, "ChannelDiff", "How a channel of both frames differs.")
        .field("channels", &ChannelDiff::channels, "the Channel of each frame")
        .field("differs", &ChannelDiff::differs, "of \"index\", \"name\", \"type\", \"alias\"")
        .field("comparable", &ChannelDiff::comparable, "both have values of a kind")
        .field("pixels", &ChannelDiff::pixels, "that both have")
        .field("differing", &ChannelDiff::differing, "of these")
        .field("warnings", &ChannelDiff::warnings, "pixels beyond the limit of warnings")
        .field("failures", &ChannelDiff::failures, "pixels beyond the limit of failures")
        .field("numbers", &ChannelDiff::numbers, "DiffNumbers, or None of ids")
        .field("largest", &ChannelDiff::largest, "DiffPlace of the first of the largest differences, or None")
        .field("lacks", &ChannelDiff::lacks, "Boxes that each frame lacks and the other one has")
        .field("lacks_pixels", &ChannelDiff::lacksPixels, "pixels of these");
    Report<RecordDiff>(module, "RecordDiff", "A record that differs.")
        .field("name", &RecordDiff::name, "such as \"note\"")
        .field("present", &RecordDiff::present, "whether each frame has it");
    Report<FileDiffReport>(module, "DiffReport", "How two frames differ.")
        .field("state", nameOfState<FileDiffReport>, "\"good\", \"warnings\", \"failures\" or \"mismatch\"")
        .field("cause", &DiffReport::cause, "of a mismatch, or why there is no comparison")
        .field("offset", offsetOf<&DiffReport::causeOffset, FileDiffReport>, "where that shows, or None")
        .field("side", &DiffReport::side, "the frame that it is about, 0 or 1; -1 for none")
        .field("incomplete", &FileDiffReport::incomplete,
               "for each frame why pixels are missing that should be there, or \"\"")
        .field(
            "file_states",
            [](const FileDiffReport& r) {
                return std::array<std::string, 2>{stateName(r.fileStates[0]), stateName(r.fileStates[1])};
            },
            "state of each file, as of VerifyReport")
        .field("damaged", &DiffReport::damaged, "list of Fault of that frame")
        .field("frames", &DiffReport::frames, "Box of each frame")
        .field("channels", &DiffReport::channels, "list of ChannelDiff")
        .field("only_in", &DiffReport::onlyIn,
               "for each frame, the Channels that the other one does not have")
        .field("records", &DiffReport::records, "list of RecordDiff")
        .field("pixels", &DiffReport::pixels, "compared in any channel")
        .field("warnings", &DiffReport::warnings, "of these, beyond the limit of warnings")
        .field("failures", &DiffReport::failures, "of these, beyond the limit of failures");
}

}  // namespace

void bindToolReports(py::module_& module) {
    bindVerify(module);
    bindRecover(module);
    bindMerge(module);
    bindConvert(module);
    bindStats(module);
    bindDiff(module);
}

}  // namespace rawimage_python
