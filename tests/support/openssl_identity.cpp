#include "tests/support/openssl_identity.h"

#include <gtest/gtest.h>

#include "host/process.h"

namespace tovrek::test {

std::string runOpenssl(const std::vector<std::string>& arguments) {
  Command command;
  command.argv = {"/usr/bin/openssl"};
  command.argv.insert(command.argv.end(), arguments.begin(), arguments.end());
  command.standardError = StandardError::kCapture;
  Outcome outcome;
  ErrorText error;
  EXPECT_TRUE(runProcess(command, &outcome, &error)) << error.text();
  EXPECT_EQ(outcome.status, 0) << outcome.errorOutput;
  return outcome.output;
}

IdentityFiles makeIdentity(const TemporaryFolder& folder, const std::string& name,
                           const IdentityRequest& request) {
  IdentityFiles files = {folder.file(name + ".key"), folder.file(name + ".pem")};
  const std::string wish = folder.file(name + ".csr");
  std::vector<std::string> arguments = {"req",           "-new", "-utf8", "-subj",
                                        request.subject, "-out", wish};
  if (request.existingKey.empty()) {
    arguments.insert(arguments.end(), {"-nodes", "-newkey", "ec", "-pkeyopt",
                                       "ec_paramgen_curve:P-256", "-keyout", files.key});
  } else {
    files.key = request.existingKey;
    arguments.insert(arguments.end(), {"-key", files.key});
  }
  runOpenssl(arguments);

  const std::string extensions = folder.write(name + ".ext", request.extensions);
  arguments = {"x509",     "-req",
               "-in",      wish,
               "-out",     files.certificate,
               "-extfile", extensions,
               "-days",    std::to_string(request.days)};
  if (request.issuer == nullptr) {
    arguments.insert(arguments.end(), {"-signkey", files.key});
  } else {
    arguments.insert(arguments.end(), {"-CA", request.issuer->certificate, "-CAkey",
                                       request.issuer->key, "-CAcreateserial"});
  }
  runOpenssl(arguments);
  return files;
}

std::string makePkcs12(const TemporaryFolder& folder, const std::string& name,
                       const IdentityFiles& identity, const std::string& password,
                       const std::vector<std::string>& options) {
  const std::string path = folder.file(name + ".p12");
  std::vector<std::string> arguments = {
      "pkcs12", "-export", "-inkey",   identity.key,      "-in", identity.certificate,
      "-out",   path,      "-passout", "pass:" + password};
  arguments.insert(arguments.end(), options.begin(), options.end());
  runOpenssl(arguments);
  return path;
}

std::string derOf(const std::string& certificateFile) {
  return runOpenssl({"x509", "-in", certificateFile, "-outform", "DER"});
}

}  // namespace tovrek::test
