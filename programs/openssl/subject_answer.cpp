#include "programs/openssl/subject_answer.h"

#include <openssl/pem.h>

#include "formats/openssl_owners.h"
#include "host/files.h"
#include "host/paths.h"

namespace tovrek::openssl {

namespace {

constexpr uint64_t kLargestFile = 1 << 20;
constexpr std::string_view kPemStart = "-----BEGIN CERTIFICATE-----\n";

struct Question {
  std::string file, form;
  bool subject = false, quiet = false;
};

// None for any other option, and for one that is there twice.
std::optional<Question> questionOf(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.front() != "x509") return std::nullopt;
  Question question;
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    std::string* value = word == "-in"       ? &question.file
                         : word == "-inform" ? &question.form
                                             : nullptr;
    bool* flag = word == "-subject" ? &question.subject
                 : word == "-noout" ? &question.quiet
                                    : nullptr;
    if (value != nullptr && value->empty() && i + 1 < arguments.size()) {
      *value = arguments[++i];
    } else if (flag != nullptr && !*flag) {
      *flag = true;
    } else {
      return std::nullopt;
    }
  }
  const bool complete = question.subject && question.quiet && !question.file.empty();
  return complete ? std::optional(question) : std::nullopt;
}

X509Owner parse(const std::string& bytes, std::string_view form) {
  const bool isPem = bytes.starts_with(kPemStart);
  if (!form.empty() && !equalsIgnoringCase(form, isPem ? "pem" : "der")) return nullptr;
  if (isPem)
    return X509Owner(PEM_read_bio_X509(readingFrom(bytes).get(), nullptr, nullptr, nullptr));
  const unsigned char* at = asBytes(bytes);
  const unsigned char* end = at + bytes.size();
  X509Owner certificate(d2i_X509(nullptr, &at, static_cast<long>(bytes.size())));
  return at == end ? std::move(certificate) : nullptr;
}

}  // namespace

std::optional<std::string> subjectAnswer(const std::vector<std::string>& arguments) {
  const auto question = questionOf(arguments);
  std::string bytes;
  if (!question || !isPlainFile(question->file) ||
      fileSize(question->file).value_or(kLargestFile + 1) > kLargestFile ||
      !readFile(question->file, &bytes)) {
    return std::nullopt;
  }
  const X509Owner certificate = parse(bytes, question->form);
  if (!certificate) return std::nullopt;
  char* line = X509_NAME_oneline(X509_get_subject_name(certificate.get()), nullptr, 0);
  if (line == nullptr) return std::nullopt;
  std::string answer = std::string("subject=") + line + "\n";
  OPENSSL_free(line);
  return answer;
}

}  // namespace tovrek::openssl
