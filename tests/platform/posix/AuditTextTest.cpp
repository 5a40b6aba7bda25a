#include <string>

#include <gtest/gtest.h>

#include "foundation/POSIXError.h"
#include "platform/posix/AuditText.h"

namespace corvane {
namespace {

AuditEntry deletion(Array arguments) {
  return {"delete-fileobjects", "com.corvane.vnt.delete-fileobjects", AuditOutcome::Done,
          std::nullopt, std::move(arguments)};
}

TEST(AuditTextTest, SaysWhoDidWhatOnWhatAndHowItEnded) {
  EXPECT_EQ(auditText({7, 501, "ada", "/opt/Editor"}, deletion({"/tmp/a", 3})),
            "ada (uid 501) with /opt/Editor (pid 7): delete-fileobjects '/tmp/a' '3': done");
}

TEST(AuditTextTest, WhatTheSystemDoesNotTellIsLeftOut) {
  AuditEntry entry = deletion({});
  entry.arguments.reset();
  entry.outcome = AuditOutcome::Refused;
  entry.error = posixError(POSIXErrorCode::NotPermitted);
  EXPECT_EQ(auditText({7, 501, "", ""}, entry),
            "uid 501 with a program (pid 7): delete-fileobjects: refused (NSPOSIXErrorDomain 1)");
}

TEST(AuditTextTest, NothingThatAClientChoosesBreaksTheLineOrClosesAQuote) {
  EXPECT_EQ(auditText({7, 501, "a\nb", "/x\ny"}, deletion({"it's\n"})),
            "a\\x0ab (uid 501) with /x\\x0ay (pid 7): delete-fileobjects 'it\\'s\\x0a': done");
}

TEST(AuditTextTest, ArgumentsAreBoundedInNumberAndLength) {
  const auto shown = auditedArguments(deletion(Array(20, std::string(255, 'x') + "ö")));
  ASSERT_EQ(shown.size(), 16U);
  EXPECT_EQ(shown[0], "'" + std::string(255, 'x') + "…'") << "not in the middle of a character";
  EXPECT_TRUE(auditText({}, deletion(Array(20, "a"))).ends_with("'a' and 4 more: done"));
}

}  // namespace
}  // namespace corvane
