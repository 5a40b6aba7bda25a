#ifndef CORVANE_TESTS_SUPPORT_SYSTEMOBJECTS_H
#define CORVANE_TESTS_SUPPORT_SYSTEMOBJECTS_H

#include <string>

namespace corvane {

// What tests do to objects of the file system that each system has a way of its own for.

/// Makes a whiteout. Throws std::system_error.
void makeWhiteoutAt(const std::string& path);

/// Has two objects change their names at one and the same instant. False if they cannot.
bool exchangeNames(const std::string& one, const std::string& other);

/// Removes a tree with the tools of an administrator, whatever protects what is in it.
void removeByTools(const std::string& path);

}  // namespace corvane

#endif
