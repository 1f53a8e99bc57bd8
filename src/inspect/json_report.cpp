// Reports for programs. Members may be added to the schema; those that are there keep their names
// and meanings.
#include <fmt/format.h>

#include "inspect/JsonWriter.h"
#include "inspect/reports.h"
#include "inspect/text.h"
#include "signing/signing_rules.h"

namespace tovrek::inspect {
namespace {

constexpr uint64_t kSchema = 1;

class JsonReport {
 public:
  std::string write(const std::vector<Subject>& subjects, double now) {
    json_.beginObject().number("schema", kSchema).text("date", dateText(now));
    json_.beginArray("inputs");
    for (const Subject& subject : subjects) write(subject);
    json_.endArray().endObject();
    return json_.take();
  }

 private:
  void write(const Subject& subject) {
    const FindingCounts counts = countOf(subject.findings);
    json_.beginObject().text("path", subject.path).text("kind", nameOf(subject.kind));
    json_.number("size", subject.size).number("errors", counts.errors);
    json_.number("warnings", counts.warnings);
    findings("findings", subject.findings);
    json_.beginArray("ends");
    for (const auto& expiry : subject.expiries()) {
      json_.beginObject().text("date", dateText(expiry.at)).text("what", expiry.what).endObject();
    }
    json_.endArray();
    if (subject.app) write(*subject.app);
    if (!subject.code.empty()) codeObjects("code", subject.code);
    if (!subject.profiles.empty()) {
      json_.beginArray("profiles");
      for (const ProfileDetails& each : subject.profiles) write(each, "");
      json_.endArray();
    }
    if (!subject.certificates.empty()) {
      certificates("certificates", subject.certificates);
      json_.flag("hasKeys", subject.hasKeys);
    }
    if (subject.package) write(*subject.package);
    if (subject.forecast) write(*subject.forecast);
    if (subject.comparison) write(*subject.comparison);
    json_.endObject();
  }

  void findings(std::string_view key, const Findings& list) {
    json_.beginArray(key);
    for (const Finding& finding : list) {
      json_.beginObject().text("code", finding.code).text("severity", nameOf(finding.severity));
      json_.text("place", finding.place).text("reason", finding.reason);
      json_.text("remedy", finding.remedy).endObject();
    }
    json_.endArray();
  }

  void texts(std::string_view key, const std::vector<std::string>& list) {
    json_.beginArray(key);
    for (const std::string& text : list) json_.text("", text);
    json_.endArray();
  }

  void write(const App& app) {
    json_.beginObject("app").text("folder", app.folder).text("name", app.name);
    json_.text("identifier", app.identifier).text("version", app.version);
    json_.text("build", app.build).text("minimumSystem", app.minimumSystem);
    texts("devices", app.devices);
    texts("architectures", app.architectures);
    json_.number("size", app.size).number("files", app.files);
    json_.flag("encrypted", app.isEncrypted).flag("wrapped", app.isWrapped);
    json_.text("libraryVersion", app.libraryVersion);
    json_.flag("sdk", app.isSdk).flag("intune", app.isIntune);
    icons(app.icons);
    codeObjects("code", app.code);
    json_.endObject();
  }

  void icons(const std::vector<Icon>& list) {
    json_.beginArray("icons");
    for (const Icon& icon : list) {
      json_.beginObject().text("path", icon.path).number("width", icon.width);
      json_.number("height", icon.height).endObject();
    }
    json_.endArray();
  }

  void codeObjects(std::string_view key, const std::vector<CodeObject>& list) {
    json_.beginArray(key);
    for (const CodeObject& object : list) {
      json_.beginObject().text("path", object.path).text("kind", nameOf(object.kind));
      json_.text("executable", object.executable).text("identifier", object.identifier);
      json_.text("version", object.version).text("problem", object.problem);
      json_.beginArray("slices");
      for (const Slice& slice : object.slices) write(slice);
      json_.endArray();
      if (object.profile) write(*object.profile, "profile");
      json_.endObject();
    }
    json_.endArray();
  }

  void write(const Slice& slice) {
    json_.beginObject().text("architecture", slice.architecture);
    json_.text("platform", slice.platform).text("minimumSystem", slice.minimumSystem);
    json_.text("sdk", slice.sdk).flag("encrypted", slice.isEncrypted());
    json_.number("headerRoom", slice.headerRoom).text("problem", slice.problem);
    json_.flag("loadsManagement", slice.loadsManagement);
    texts("libraries", slice.libraries);
    if (slice.signature) {
      write(*slice.signature);
    } else {
      json_.null("signature").text("signatureProblem", slice.signatureProblem);
    }
    json_.endObject();
  }

  void write(const SliceSignature& signature) {
    json_.beginObject("signature").text("identifier", signature.identifier);
    json_.text("team", signature.team).text("flags", signing::flagsText(signature.flags));
    texts("hashes", signature.hashes);
    json_.text("cdHash", signature.cdHash).flag("adhoc", signature.isAdhoc);
    json_.text("signedOn", signature.signedAt ? dateText(*signature.signedAt) : "");
    certificates("chain", signature.chain);
    if (signature.entitlements) {
      dictionary("entitlements", *signature.entitlements);
    } else {
      json_.null("entitlements");
    }
    json_.flag("derEntitlements", signature.hasDerEntitlements).endObject();
  }

  void certificates(std::string_view key, const std::vector<Certificate>& list) {
    json_.beginArray(key);
    for (const Certificate& each : list) {
      json_.beginObject().text("name", each.signerName());
      json_.text("team", each.organizationalUnit().value_or("")).text("sha1", each.sha1Hex());
      json_.text("from", dateText(each.notBefore())).text("until", dateText(each.notAfter()));
      json_.endObject();
    }
    json_.endArray();
  }

  // Values as one line of text each.
  void dictionary(std::string_view key, const PlistDictionary& values) {
    json_.beginObject(key);
    for (const auto& [name, value] : values) {
      // An object's members need a name.
      json_.text(name.empty() ? "(empty)" : name, valueText(value));
    }
    json_.endObject();
  }

  void write(const ProfileDetails& profile, std::string_view key) {
    const device::Profile& grants = profile.grants;
    json_.beginObject(key).text("path", profile.path).text("name", grants.name);
    json_.text("uuid", profile.uuid).text("kind", profile.kind);
    json_.text("team", grants.team).text("teamName", profile.teamName);
    json_.text("identifier", grants.applicationIdentifier);
    json_.text("from", dateText(grants.created)).text("until", dateText(grants.expires));
    json_.flag("allDevices", grants.allDevices);
    texts("devices", grants.devices.value_or(std::vector<std::string>()));
    texts("platforms", grants.platforms);
    certificates("certificates", grants.certificates);
    dictionary("entitlements", grants.entitlements);
    json_.endObject();
  }

  void write(const Package& package) {
    json_.beginObject("package").beginArray("manifest");
    for (const auto& [path, text] : package.manifest) {
      json_.beginObject().text("element", path).text("text", text).endObject();
    }
    json_.endArray();
    texts("policies", package.policies);
    texts("languages", package.languages);
    json_.beginArray("files");
    for (const auto& [name, size] : package.files) {
      json_.beginObject().text("name", name).number("size", size).endObject();
    }
    json_.endArray();
    icons(package.icons);
    json_.endObject();
  }

  void write(const WrapForecast& forecast) {
    json_.beginObject("wrap").flag("wouldWrap", forecast.wouldWrap);
    findings("obstacles", forecast.obstacles);
    findings("remarks", forecast.remarks);
    json_.endObject();
  }

  void write(const Comparison& comparison) {
    json_.beginArray("comparison");
    for (const ChangeGroup& group : comparison) {
      json_.beginObject().text("title", group.title).number("unchanged", group.unchanged);
      json_.beginArray("changes");
      for (const Change& change : group.changes) {
        json_.beginObject().text("subject", change.subject).text("before", change.before);
        json_.text("after", change.after).endObject();
      }
      json_.endArray().endObject();
    }
    json_.endArray();
  }

  JsonWriter json_;
};

}  // namespace

std::string jsonReport(const std::vector<Subject>& subjects, double now) {
  return JsonReport().write(subjects, now);
}

}  // namespace tovrek::inspect
