#include "platform/posix/Program.h"

#include <utility>

#include "foundation/Exception.h"
#include "foundation/Value.h"
#include "platform/Pipe.h"
#include "platform/Task.h"

namespace corvane {

namespace {

// Reads all that comes: the program must not wait for a reader of what it says.
std::string readAll(FileHandle& handle) {
  std::string text;
  for (Data chunk = handle.availableData(); !chunk.empty(); chunk = handle.availableData()) {
    text += stringFromData(chunk);
  }
  text.erase(text.find_last_not_of('\n') + 1);
  return text;
}

}  // namespace

ProgramResult runProgram(const std::string& path, std::vector<std::string> arguments) {
  const auto input = Pipe::pipe();
  const auto output = Pipe::pipe();
  if (!input || !output) return {-1, "out of descriptors"};
  const auto task = Task::init();
  task->setStandardInput(input->fileHandleForReading);
  task->setStandardOutput(output->fileHandleForWriting);
  task->setStandardError(output->fileHandleForWriting);
  task->setLaunchPath(path);
  task->setArguments(std::move(arguments));
  try {
    task->launch();
  } catch (const Exception& exception) {
    return {-1, exception.reason()};
  }
  output->fileHandleForWriting->closeFile();
  std::string text = readAll(*output->fileHandleForReading);
  return {task->terminationStatus(), std::move(text)};
}

}  // namespace corvane
