#include "inspect/inspect.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "inspect/readers.h"
#include "keychain/item_files.h"

namespace tovrek::inspect {
namespace {

constexpr std::string_view kCertificateNames[] = {"p12", "pfx", "cer", "crt", "der", "pem"};
constexpr std::string_view kProfileNames[] = {"mobileprovision", "provisionprofile"};
constexpr uint64_t kLargestCredential = 16 << 20;

bool isOneOf(std::span<const std::string_view> names, const std::string& extension) {
  return std::ranges::find(names, extension) != names.end();
}

// Reads and judges one input, by what it is called and by what is in it.
class InputReader {
 public:
  InputReader(const std::string& path, const Rules& rules, OpenApp* open)
      : path_(path), rules_(rules), open_(*open) {
    subject_.path = path;
  }

  Subject read() {
    const std::string extension = toLowerAscii(pathExtension(path_));
    const auto status = statusOf(path_);
    if (!status) {
      refuse("there is no such file or folder");
    } else if (status->kind == ItemKind::kDirectory) {
      readAppFolder();
    } else if (status->kind != ItemKind::kFile) {
      refuse("it is neither a file nor a folder");
    } else {
      subject_.size = status->size;
      readFileOf(extension);
    }
    sortFindings(&subject_.findings);
    return std::move(subject_);
  }

 private:
  void refuse(std::string reason) {
    subject_.kind = SubjectKind::kUnreadable;
    report(&subject_.findings, "input-unreadable", "", std::move(reason));
  }

  void readFileOf(const std::string& extension) {
    if (extension == "ipa" || extension == "wex") return readArchive(extension == "wex");
    if (isOneOf(kProfileNames, extension)) return readProfileFile();
    if (isOneOf(kCertificateNames, extension)) return readCertificates();
    readCode();
  }

  void readAppFolder() {
    ErrorText reason;
    open_.tree = openFolder(path_, &reason);
    if (!open_.tree) return refuse(reason.text());
    open_.onDisk = realPath(path_).value_or(path_);
    subject_.kind = SubjectKind::kApp;
    judgeOpenApp();
    subject_.size = subject_.app->size;
  }

  void judgeOpenApp() {
    const std::string& folder = open_.onDisk.empty() ? open_.folder : open_.onDisk;
    subject_.app =
        readApp(*open_.tree, open_.folder, lastPathComponent(folder), &subject_.findings);
    judgeApp(*open_.tree, open_.folder, open_.onDisk, rules_, &subject_);
  }

  void readArchive(bool isPackage) {
    ErrorText reason;
    auto tree = openArchive(path_, &reason);
    if (!tree) return refuse(reason.text());
    subject_.kind = isPackage ? SubjectKind::kPackage : SubjectKind::kApp;
    if (!isPackage) {
      open_.tree = std::move(tree);
      readAppInside();
      if (!subject_.app) subject_.kind = SubjectKind::kUnreadable;
      return;
    }
    open_.outer = std::move(tree);
    subject_.package = readPackage(*open_.outer, &subject_.findings);
    openInnerArchive();
    judgePackage(*open_.outer, subject_.app ? open_.tree.get() : nullptr, open_.folder, &subject_);
  }

  void readAppInside() {
    const auto folder = findApp(*open_.tree, &subject_.findings);
    if (!folder) return;
    open_.folder = *folder;
    judgeOpenApp();
  }

  void openInnerArchive() {
    const std::string& name = subject_.package->appArchive;
    if (name.empty()) return;
    ErrorText reason;
    auto contents = open_.outer->read(name, kLargestItem, &reason);
    if (contents) open_.tree = openArchive(std::move(*contents), &reason);
    if (open_.tree) return readAppInside();
    report(&subject_.findings, "item-unreadable", name, reason.text());
  }

  void readProfileFile() {
    ErrorText reason;
    std::string bytes;
    const bool isRead = subject_.size <= kLargestDocument && readFile(path_, &bytes, &reason);
    auto profile =
        isRead ? readProfileDetails(bytes, lastPathComponent(path_), &reason) : std::nullopt;
    if (!profile) {
      report(&subject_.findings, "profile-unreadable", lastPathComponent(path_),
             isRead || reason.isSet() ? reason.text() : "it is too large");
      return;
    }
    subject_.kind = SubjectKind::kProfile;
    subject_.profiles.push_back(std::move(*profile));
    judgeCredentials(rules_, &subject_);
  }

  void readCertificates() {
    std::string bytes;
    ErrorText reason;
    if (subject_.size > kLargestCredential) return refuse("it is too large for certificates");
    if (!readFile(path_, &bytes, &reason)) return refuse(reason.text());
    keychain::Items items;
    const auto result = keychain::readItems(bytes, password(), &items);
    if (items.certificates.empty()) return refuse(reasonOf(result));
    subject_.kind = SubjectKind::kCertificates;
    subject_.certificates = std::move(items.certificates);
    subject_.hasKeys = !items.keys.empty();
    judgeCredentials(rules_, &subject_);
  }

  static std::optional<std::string> password() {
    const char* given = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
    return given != nullptr ? std::optional<std::string>(given) : std::nullopt;
  }

  static std::string reasonOf(keychain::ReadResult result) {
    switch (result) {
      case keychain::ReadResult::kWrongPassword:
        return "it needs a password; put it into TOVREK_KEYCHAIN_PASSWORD";
      case keychain::ReadResult::kUnsupported:
        return "it is encrypted in a way that this host does not know";
      case keychain::ReadResult::kTooCostly:
        return "its password is to be turned round too often";
      default:
        return "it holds no certificate";
    }
  }

  void readCode() {
    MappedFile file;
    ErrorText reason;
    const auto real = realPath(path_);
    if (!real || !file.open(*real, &reason)) return refuse("it cannot be read: " + reason.text());
    const std::string_view bytes = asText(file.bytes());
    if (!looksLikeCode(bytes)) return refuse("it is of no kind that Inspect knows");
    CodeObject object;
    object.path = object.executable = lastPathComponent(path_);
    object.slices = readSlices(bytes, &object.problem);
    subject_.kind = SubjectKind::kCode;
    subject_.code.push_back(std::move(object));
    judgeCodeFile(*real, rules_, &subject_);
  }

  const std::string& path_;
  const Rules& rules_;
  OpenApp& open_;
  Subject subject_;
};

}  // namespace

bool isKnownName(const std::string& path) {
  const std::string extension = toLowerAscii(pathExtension(path));
  return extension == "app" || extension == "ipa" || extension == "wex" ||
         isOneOf(kProfileNames, extension) || isOneOf(kCertificateNames, extension);
}

std::optional<std::vector<std::string>> inputsIn(const std::string& folder, ErrorText* error) {
  std::vector<std::string> inputs;
  const auto take = [&](const WalkedItem& item) {
    const bool isApp = toLowerAscii(pathExtension(item.relativePath)) == "app";
    const bool isFolder = item.kind == ItemKind::kDirectory;
    if (item.kind == ItemKind::kLink || item.kind == ItemKind::kOther) return false;
    if (isApp == isFolder && isKnownName(item.relativePath)) {
      inputs.push_back(joinPath(folder, item.relativePath));
    }
    return !isApp;
  };
  if (!walkDirectory(folder, take, error)) return std::nullopt;
  return inputs;
}

Subject inspectInput(const std::string& path, const Rules& rules, OpenApp* open) {
  OpenApp own;
  return InputReader(path, rules, open != nullptr ? open : &own).read();
}

}  // namespace tovrek::inspect
