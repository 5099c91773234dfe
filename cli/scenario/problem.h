#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// A place in a file that a person wrote. Line 0 stands for the file as a whole.
struct Location {
    std::string file;
    int line = 0;

    std::string text() const { return line > 0 ? file + ":" + std::to_string(line) : file; }
};

/// Something that keeps a file from being used.
struct Problem {
    Location where;
    std::string message;

    /// For people: control characters, which a name may hold, are shown and not sent to the terminal.
    std::string text() const;
};

/// Gathers the problems of a file, so that one run names all of them.
class Problems {
  public:
    void add(Location where, std::string message) { list_.push_back({std::move(where), std::move(message)}); }
    bool empty() const { return list_.empty(); }
    void add(const std::vector<Problem> &problems) { list_.insert(list_.end(), problems.begin(), problems.end()); }
    /// In the order of the lines, each said once.
    std::vector<Problem> sorted() const;
    const std::vector<Problem> &list() const { return list_; }

  private:
    std::vector<Problem> list_;
};

/// Thrown when a file can't be used at all; carries every problem found in it.
class UnusableFile : public std::runtime_error {
  public:
    explicit UnusableFile(std::vector<Problem> problems)
        : std::runtime_error(problems.empty() ? "unusable file" : problems.front().text()),
          problems_(std::move(problems)) {}
    UnusableFile(Location where, std::string message)
        : UnusableFile(std::vector<Problem>{{std::move(where), std::move(message)}}) {}

    const std::vector<Problem> &problems() const { return problems_; }

  private:
    std::vector<Problem> problems_;
};

} // namespace cli
