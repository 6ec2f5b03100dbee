// From job files and folders to a graph.
#pragma once

#include "qvlineagegraph/graph.h"
#include "qvlineagegraph/result.h"

#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qvlineagegraph {

// Which files of a folder count. A pattern is a shell's (*, ?, [abc]); it is tried against the path below the folder that
// was given, where * matches a "/" too, and against the file's own name. Files that are given themselves always count.
struct PathPatterns {
  std::vector<std::string> include; // none: every file
  std::vector<std::string> exclude; // matched by a folder: nothing below it counts
};

struct JobFile {
  std::string path; // absolute
  std::string name; // below what was given, without extension, which stays where two names would be the same
};

struct JobFiles {
  std::vector<JobFile> files; // each once, in the order of the search
  std::vector<Note> failures; // of what could not be looked at
};

// A file stands for itself; a folder for the job files below it (by their extension), to any depth, in name order. Folders
// behind a symbolic link are not entered. File URIs are taken, too.
QVLINEAGEGRAPH_API JobFiles findJobFiles(std::span<const std::string> paths,
                                         const PathPatterns& patterns = {});

// "their extensions are djf, ...": what makes a file in a folder a job file.
QVLINEAGEGRAPH_API std::string jobFileExtensions();

// All that a stream gives; of more than an XML document may have (QvDom::MaxSize), one byte more than that.
QVLINEAGEGRAPH_API std::string streamContent(std::istream& stream);
// That of a pipe, which can be read only once. Nothing for what is no pipe, or cannot be opened.
QVLINEAGEGRAPH_API std::optional<std::string> pipeContent(const std::string& path);

struct ScanOptions {
  PathPatterns patterns;
  unsigned threads = 0; // 0: one for each core
  // Whether a bare table name stays what it is, even if exactly one table of its name is known.
  bool exact = false;
  // The job, or the saved graph, that the path "-" stands for.
  std::string input;
  // Told on the calling thread now and then how many of how many files are done; false stops the scan.
  std::function<bool(std::size_t done, std::size_t total)> progress;
};

// The graph of the job files that the paths stand for. A path may also name a saved graph (json.h). What cannot be read
// or understood becomes a note, and the others still count: the only error is that the scan was stopped.
QVLINEAGEGRAPH_API Result<Graph> scan(std::span<const std::string> paths, const ScanOptions& options = {});

} // namespace qvlineagegraph
