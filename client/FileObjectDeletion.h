#ifndef CORVANE_CLIENT_FILEOBJECTDELETION_H
#define CORVANE_CLIENT_FILEOBJECTDELETION_H

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "PrivilegedHelperClient.h"

namespace corvane {

/// Paths of somebody else's list: what is told of them needs no copies.
using PathPointers = std::vector<const std::string*>;

/// One deletion of several objects, with as few requests as it takes.
class FileObjectDeletion {
 public:
  using Outcome = PrivilegedHelperClient::Outcome;
  using Feedback = PrivilegedHelperClient::Feedback;

  FileObjectDeletion(PrivilegedHelperClient& client, const std::vector<std::string>& paths,
                     const PrivilegedHelperClient::DeletionOptions& options,
                     const std::optional<Feedback>& feedback);

  PrivilegedHelperClient::DeletionOutcome run();

 private:
  /// What one request can be about.
  struct Step {
    PathPointers paths;
    bool isRecursive = false;
  };
  std::vector<Step> steps() const;

  Answer<Outcome> request(const PathPointers& paths, bool recursive,
                          const std::optional<Feedback>& feedback);
  Answer<Outcome> perform(const Step& step);
  Answer<Outcome> performSeparately(const Step& step);
  bool lift(const PathPointers& trees, Answer<Outcome>& answer);
  void conclude(const std::string& path, bool hasStopped);
  PathPointers failuresOf(const Step& step) const;
  void noteErrors(const Step& step, const Error& error);

  std::optional<Feedback> feedbackAbout(const PathPointers& paths);
  void tellProgress(double fraction);

  PrivilegedHelperClient& _client;
  const std::vector<std::string>& _paths;
  const bool _isRecursive;
  const bool _stopsOnFirstError;
  const std::optional<Feedback>& _feedback;

  PrivilegedHelperClient::DeletionOutcome _outcome;
  std::set<std::string_view> _missing;   ///< those of the paths where nothing was
  std::map<std::string, Error> _errors;  ///< by path, where known
  std::size_t _done = 0;                 ///< how many paths the requests before were about
  double _progress = 0;
};

/// What a request's answer leaves open is judged by what this process sees of the paths: true if
/// some of `there`, which were there before, are gone, or if a flag that the deletion does not lift
/// protects one.
bool isEvidentlyAuthorized(const PathPointers& there, bool recursive);
/// Those of the paths where something is, or may be: an ordinary user does not see everything.
PathPointers whereSomethingIs(const PathPointers& paths);

}  // namespace corvane

#endif
