#ifndef CORVANE_TESTS_EMULATOR_SYMBOLS_H
#define CORVANE_TESTS_EMULATOR_SYMBOLS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace emulator {

/// What this system has for a symbol of macOS, by the name that stands in programs. The calling
/// convention of both is the same, so that where the types are as well the C library's own function
/// serves. For a symbol that is not there this is a function that ends the process with its name.
void* symbolNamed(const std::string& name);

struct Symbol {
  const char* name;
  void* address;
};
template <typename Function>
Symbol function(const char* name, Function* address) {
  return {name, reinterpret_cast<void*>(address)};
}

// Those that are not the same on both systems, by subject.
std::span<const Symbol> textSymbols();
std::span<const Symbol> fileSymbols();
std::span<const Symbol> threadSymbols();
std::span<const Symbol> processSymbols();
std::span<const Symbol> taskSymbols();
std::span<const Symbol> systemSymbols();
std::span<const Symbol> objectClassSymbols();
std::span<const Symbol> objectLifeSymbols();

/// The number that macOS has for an error of this system.
int darwinError(int hostError);
/// The other way; nothing for a number that this system has no error for.
std::optional<int> hostError(int darwinError);
/// This system's number for a signal of macOS.
int hostSignal(int darwinSignal);

}  // namespace emulator

#endif
