#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace rimg {

// The files of a verb that takes several: FILE... itself, --files-from for a list of names, and --frames for
// the numbers of a sequence. A verb keeps one among its options, where it outlives the parse:
//
//     options->files.addTo(*verb, "Raw images");                      // when the verb is added
//     for (const std::string& file : options.files.names()) ...       // when it runs
class FileList {
  public:
    FileList() = default;
    FileList(const FileList&) = delete;
    FileList& operator=(const FileList&) = delete;

    void addTo(CLI::App& verb, const std::string& description);

    // All names in the order in which they were given, those of the list last, each with all of its frames;
    // at least one, at most a million. The files need not exist. Reads the list, so call it once. Throws
    // Failure.
    std::vector<std::string> names() const;

  private:
    std::vector<std::string> files_;
    std::string frames_;
    std::string list_;  // of --files-from
    bool nullEnds_ = false;
};

}  // namespace rimg
