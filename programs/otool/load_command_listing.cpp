#include "programs/otool/load_command_listing.h"

#include <ctime>

#include "programs/otool/command_forms.h"
#include "programs/otool/names.h"
#include "programs/otool/segment_listing.h"
#include "programs/otool/thread_listing.h"

namespace tovrek::otool {
namespace {

using listing::Output;
using macho::CommandView;

constexpr uint32_t kThread = 0x4;
constexpr uint32_t kIdent = 0x8;
constexpr uint32_t kPreboundDylib = 0x10;
constexpr uint32_t kLinkerOption = 0x2d;

std::string shortVersion(uint32_t version) {
  const std::string text = fmt::format("{}.{}", version >> 16, version >> 8 & 0xff);
  return (version & 0xff) == 0 ? text : fmt::format("{}.{}", text, version & 0xff);
}

// "a.b", followed by as many of c, d and e as there are up to the last that is not 0.
std::string sourceVersion(uint64_t version) {
  constexpr uint64_t kTenBits = 0x3ff;
  const uint64_t parts[] = {version >> 40, version >> 30 & kTenBits, version >> 20 & kTenBits,
                            version >> 10 & kTenBits, version & kTenBits};
  size_t count = 5;
  while (count > 2 && parts[count - 1] == 0) --count;
  std::string text = std::to_string(parts[0]);
  for (size_t i = 1; i < count; ++i) text += "." + std::to_string(parts[i]);
  return text;
}

std::string uuidText(std::span<const std::byte> uuid) {
  std::string text;
  for (size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += fmt::format("{:02X}", std::to_integer<unsigned>(uuid[i]));
  }
  return text;
}

// As ctime prints it, in the host's time zone.
std::string timeText(uint32_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  char text[64] = "";
  if (localtime_r(&time, &parts) == nullptr) return "";
  std::strftime(text, sizeof(text), "%a %b %e %H:%M:%S %Y", &parts);
  return text;
}

// The text that a command points to, with the offset after it.
std::string textAt(const CommandView& command, uint32_t offset) {
  if (offset >= command.bytes.size()) return fmt::format("?(bad offset {})", offset);
  return fmt::format("{} (offset {})", command.bytes.cString(offset), offset);
}

// Shows the fields of one command, one after the other.
template <class P>
class FieldReader {
 public:
  FieldReader(const macho::Image<P>& image, const CommandView& command)
      : image_(image), command_(command) {}

  // Bytes that the fields so far take.
  uint64_t end() const { return at_; }

  bool take(uint32_t* value) { return takeStored(value); }
  bool take(uint64_t* value) { return takeStored(value); }

  // None when the command ends before it.
  std::optional<std::string> show(FieldKind kind);

 private:
  template <class Integer>
  bool takeStored(Integer* value) {
    macho::Stored<Integer, typename P::Order> stored;
    if (!command_.bytes.read(at_, &stored)) return false;
    at_ += sizeof(stored);
    *value = stored;
    return true;
  }
  std::optional<std::string> showWord(FieldKind kind);
  std::optional<std::string> showWide(FieldKind kind);
  std::string noted(uint32_t value, bool isPast) const {
    return fmt::format("{}{}", value, isPast ? " (past end of file)" : "");
  }

  const macho::Image<P>& image_;
  const CommandView& command_;
  uint64_t at_ = sizeof(macho::macho_load_command<P>);
  uint64_t tableStart_ = 0;  // the last file offset shown
};

template <class P>
std::optional<std::string> FieldReader<P>::show(FieldKind kind) {
  switch (kind) {
    case FieldKind::kDecimal64:
    case FieldKind::kHex64:
    case FieldKind::kHexShort64:
    case FieldKind::kSourceVersion:
      return showWide(kind);
    case FieldKind::kUuid:
    case FieldKind::kName16: {
      macho::FixedName name;
      if (!command_.bytes.read(at_, &name)) return std::nullopt;
      at_ += sizeof(name);
      if (kind == FieldKind::kName16) return std::string(name.view());
      return uuidText(std::as_bytes(std::span(name.letters)));
    }
    default:
      return showWord(kind);
  }
}

template <class P>
std::optional<std::string> FieldReader<P>::showWide(FieldKind kind) {
  uint64_t value = 0;
  if (!take(&value)) return std::nullopt;
  switch (kind) {
    case FieldKind::kHex64:
      return fmt::format("0x{:016x}", value);
    case FieldKind::kHexShort64:
      return fmt::format("{:#x}", value);
    case FieldKind::kSourceVersion:
      return sourceVersion(value);
    default:
      return std::to_string(value);
  }
}

template <class P>
std::optional<std::string> FieldReader<P>::showWord(FieldKind kind) {
  uint32_t value = 0;
  if (!take(&value)) return std::nullopt;
  const uint64_t fileSize = image_.bytes.size();
  switch (kind) {
    case FieldKind::kHex:
      return fmt::format("0x{:08x}", value);
    case FieldKind::kFileOffset:
      tableStart_ = value;
      return noted(value, value > fileSize);
    case FieldKind::kFileEnd:
      return noted(value, tableStart_ + value > fileSize);
    case FieldKind::kTableEnd:
      return noted(value, tableStart_ + value * sizeof(macho::macho_nlist<P>) > fileSize);
    case FieldKind::kText:
      return printable(textAt(command_, value));
    case FieldKind::kTime:
      return fmt::format("{} {}", value, timeText(value));
    case FieldKind::kVersion:
      return fmt::format("{}.{}.{}", value >> 16, value >> 8 & 0xff, value & 0xff);
    case FieldKind::kShortVersion:
      return shortVersion(value);
    case FieldKind::kSdkVersion:
      return value == 0 ? "n/a" : shortVersion(value);
    default:
      return std::to_string(value);
  }
}

template <class P>
void listForm(const macho::Image<P>& image, const CommandView& command, const CommandForm& form,
              Output* output) {
  FieldReader<P> reader(image, command);
  std::string text;
  for (const Field& field : form.fields) {
    const auto value = reader.show(field.kind);
    if (!value) break;
    text += fmt::format("{:>{}} {}\n", field.label, field.width != 0 ? field.width : form.width,
                        *value);
  }
  const bool right = form.exact ? command.cmdsize == reader.end() : true;
  output->print("{:>{}} {}\n{:>{}} {}{}\n", "cmd", form.width, form.name, "cmdsize", form.width,
                command.cmdsize, right ? "" : " Incorrect size");
  output->text(text);
}

template <class P>
void listBuildVersion(const macho::Image<P>& image, const CommandView& command, bool verbose,
                      Output* output) {
  FieldReader<P> reader(image, command);
  output->print("      cmd LC_BUILD_VERSION\n  cmdsize {}\n", command.cmdsize);
  uint32_t platform = 0, minos = 0, sdk = 0, ntools = 0;
  if (!reader.take(&platform) || !reader.take(&minos) || !reader.take(&sdk) ||
      !reader.take(&ntools)) {
    return;
  }
  const auto nameOr = [verbose](std::span<const NamedNumber> names, uint32_t number) {
    const std::string_view name = nameIn(names, number);
    return verbose && !name.empty() ? std::string(name) : std::to_string(number);
  };
  output->print(" platform {}\n    minos {}\n      sdk {}\n   ntools {}\n",
                nameOr(kPlatforms, platform), shortVersion(minos),
                sdk == 0 ? "n/a" : shortVersion(sdk), ntools);
  uint32_t tool = 0, version = 0;
  while (ntools-- > 0 && reader.take(&tool) && reader.take(&version)) {
    output->print("     tool {}\n  version {}\n", nameOr(kTools, tool), shortVersion(version));
  }
}

// The texts of a command, one behind the other from `offset` on, at most `limit` of them.
void listTexts(const CommandView& command, uint64_t offset, uint64_t limit, std::string_view label,
               Output* output) {
  for (uint64_t i = 1; i <= limit && offset < command.bytes.size(); ++i) {
    const std::string_view text = command.bytes.cString(offset);
    if (text.empty() && limit > command.bytes.size()) return;
    output->print("{} #{} {}\n", label, i, text);
    offset += text.size() + 1;
  }
}

template <class P>
void listLinkerOption(const macho::Image<P>& image, const CommandView& command, Output* output) {
  FieldReader<P> reader(image, command);
  output->print("     cmd LC_LINKER_OPTION\n cmdsize {}\n", command.cmdsize);
  uint32_t count = 0;
  if (!reader.take(&count)) return;
  output->print("   count {}\n", count);
  listTexts(command, reader.end(), count, "  string", output);
}

template <class P>
void listPreboundDylib(const macho::Image<P>& image, const CommandView& command, Output* output) {
  FieldReader<P> reader(image, command);
  output->print("          cmd LC_PREBOUND_DYLIB\n      cmdsize {}\n", command.cmdsize);
  uint32_t name = 0, count = 0, modules = 0;
  if (!reader.take(&name) || !reader.take(&count) || !reader.take(&modules)) return;
  output->print("         name {}\n     nmodules {}\nlinked_modules (offset {})\n",
                textAt(command, name), count, modules);
}

template <class P>
void listCommand(const macho::Image<P>& image, const CommandView& command, bool verbose,
                 Output* output) {
  const uint32_t cmd = command.cmd;
  if (cmd == P::kSegmentCommand) {
    listSegment(image, command, verbose, output);
  } else if (const CommandForm* form = formOf(cmd)) {
    listForm(image, command, *form, output);
  } else if (cmd == kThread || cmd == macho::LC_UNIXTHREAD) {
    listThread<P>(image.header.cputype, command, output);
  } else if (cmd == macho::LC_BUILD_VERSION) {
    listBuildVersion(image, command, verbose, output);
  } else if (cmd == kLinkerOption) {
    listLinkerOption(image, command, output);
  } else if (cmd == kIdent) {
    output->print("          cmd LC_IDENT\n      cmdsize {}\n", command.cmdsize);
    listTexts(command, sizeof(macho::macho_load_command<P>), UINT64_MAX, " ident string", output);
  } else if (cmd == kPreboundDylib) {
    listPreboundDylib(image, command, output);
  } else {
    output->print("      cmd ?(0x{:08x})\n  cmdsize {}\n", cmd, command.cmdsize);
  }
}

}  // namespace

template <class P>
void listLoadCommands(const macho::Image<P>& image, bool verbose, Output* output) {
  for (const CommandView& command : image.commands) {
    output->print("Load command {}\n", command.index);
    listCommand(image, command, verbose, output);
  }
}

#define TOVREK_INSTANTIATE(P) template void listLoadCommands(const macho::Image<P>&, bool, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
