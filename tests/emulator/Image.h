#ifndef CORVANE_TESTS_EMULATOR_IMAGE_H
#define CORVANE_TESTS_EMULATOR_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace emulator {

/// A program for macOS, or a library of one, in the memory of this process, with every symbol bound
/// to what `symbolNamed` has for it. None is ever unloaded.
class Image {
 public:
  struct Section {
    std::string segment;
    std::string name;
    std::uint64_t address;
    std::uint64_t size;
    std::uint32_t type;
  };

  /// Ends this process, saying why, if that is nothing that can be run here. Libraries come before
  /// what they are for, and the program is the last.
  static void load(const std::string& path);
  static const std::vector<std::unique_ptr<Image>>& all();
  static const Image& program();
  /// The one that the address is in; null if there is none.
  static const Image* around(const void* address);

  const std::string& path() const { return _path; }
  /// The header, at which the system has programs know themselves.
  const void* header() const;
  const std::vector<Section>& sections() const { return _sections; }
  /// The content of a section; empty if there is none.
  std::span<std::byte> content(const std::string& segment, const std::string& name) const;

  /// What it supplies to others by that name; null if it has nothing so called.
  void* symbol(const std::string& name) const;

  /// Runs the program: what comes before `main` in every image, and that. Its status.
  static int run(int argc, char** argv, char** environment);

  /// What the program was run with.
  struct Arguments {
    int count = 0;
    char** texts = nullptr;
  };
  static Arguments& arguments();

 private:
  struct Segment {
    std::string name;
    std::uint64_t address;
    std::uint64_t size;
    std::uint32_t protection;
  };

  void readCommands(std::span<const std::byte> file);
  void map(std::span<const std::byte> file, std::size_t command);
  void choosePlace(std::span<const std::byte> file);
  void readSymbols(std::span<const std::byte> file, std::size_t command);
  void rebase(std::span<const std::byte> opcodes) const;
  void bind(std::span<const std::byte> opcodes, bool isLazy) const;
  void protect() const;

  std::string _path;
  std::vector<Segment> _segments;
  std::vector<Section> _sections;
  std::unordered_map<std::string, std::uint64_t> _symbols;
  std::uint64_t _header = 0;
  std::uint64_t _entry = 0;
  /// How far it is from where it was linked for.
  std::uint64_t _slide = 0;
};

/// Ends this process with a message.
[[noreturn]] void fail(const std::string& message);

}  // namespace emulator

#endif
