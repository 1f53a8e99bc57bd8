#include "programs/otool/objc_listing.h"

#include <span>
#include <string>
#include <string_view>

#include "programs/otool/PointerReader.h"
#include "programs/otool/names.h"

namespace tovrek::otool {
namespace {

using listing::Output;

// A class is listed again under each of its categories, so a listing may well be larger than the
// image. Images made to repeat themselves without end stop here.
constexpr uint64_t kOutputPerByte = 64;
constexpr uint64_t kSmallestLimit = 1 << 20;

constexpr uint32_t kRelativeMethods = 0x80000000;
constexpr uint32_t kDirectSelectors = 0x40000000;
constexpr uint32_t kMethodListFlags = 0xffff0003;
constexpr uint32_t kMetaClass = 0x1;

constexpr NamedNumber kClassFlags[] = {
    {kMetaClass, "RO_META"}, {0x2, "RO_ROOT"}, {0x4, "RO_HAS_CXX_STRUCTORS"}};
constexpr NamedNumber kImageFlags[] = {{0x1, "OBJC_IMAGE_IS_REPLACEMENT"},
                                       {0x2, "OBJC_IMAGE_SUPPORTS_GC"},
                                       {0x20, "OBJC_IMAGE_IS_SIMULATED"},
                                       {0x40, "OBJC_IMAGE_HAS_CATEGORY_CLASS_PROPERTIES"}};
constexpr NamedNumber kSwiftVersions[] = {
    {1, "Swift 1.0"}, {2, "Swift 1.1"},           {3, "Swift 2.0"},       {4, "Swift 3.0"},
    {5, "Swift 4.0"}, {6, "Swift 4.1/Swift 4.2"}, {7, "Swift 5 or later"}};

template <class P>
class ObjcLister {
 public:
  ObjcLister(const macho::Image<P>& image, Output* output)
      : image_(image),
        reader_(image),
        output_(output),
        limit_(output->size() + kSmallestLimit + image.bytes.size() * kOutputPerByte) {}

  bool list();

 private:
  using Word = typename P::Word;
  static constexpr uint64_t kPointer = P::kPointerSize;
  using ListEntry = void (ObjcLister::*)(uint64_t target);

  bool goesOn() {
    if (output_->size() < limit_) return true;
    sound_ = false;
    return false;
  }
  Target pointer(uint64_t record, uint64_t index) const {
    return reader_.at(record + index * kPointer).value_or(Target{});
  }
  bool word(uint64_t address, uint32_t* value) const {
    Word stored;
    if (!reader_.read(address, &stored)) return false;
    *value = stored;
    return true;
  }

  // "0x... name" with the import, else the symbol there, as the name.
  std::string named(const Target& target) const;
  void field(std::string_view label, uint64_t value, std::string_view note = "");
  void textField(std::string_view label, const Target& target);
  // The address of a list, and what is in it.
  void listPart(std::string_view label, const Target& target, ListEntry listEntries,
                std::string_view note = "") {
    field(label, target.address, note);
    if (target.address != 0) (this->*listEntries)(target.address);
  }

  void listSections(std::string_view name, std::string_view oldName, ListEntry listEntry);
  void listImageInfo();
  void ignore(uint64_t) {}
  void listClass(uint64_t address);
  void listCategory(uint64_t address);
  bool listClassRecord(uint64_t address, bool* isMeta);
  void listClassData(uint64_t address, bool* isMeta);
  void listLayout(uint64_t address);
  // `tabs` stands before each line of the list.
  void listMethods(uint64_t address, std::string_view tabs);
  void listPlainMethods(uint64_t address) { listMethods(address, ""); }
  void listMethod(uint64_t address, std::string_view tabs);
  void listRelativeMethod(uint64_t address, bool direct, std::string_view tabs);
  void listProtocols(uint64_t address);
  void listProtocol(uint64_t address);
  void listIvars(uint64_t address);
  void listProperties(uint64_t address);
  bool listHeader(uint64_t address, uint32_t* entrySize, uint32_t* count);
  bool printHeader(uint64_t address, uint32_t* count);

  const macho::Image<P>& image_;
  PointerReader<P> reader_;
  Output* output_;
  uint64_t limit_;
  bool sound_ = true;
};

template <class P>
std::string ObjcLister<P>::named(const Target& target) const {
  std::string_view name = target.import;
  if (name.empty() && target.address != 0) name = reader_.symbolAt(target.address);
  return fmt::format("{:#x}{}{}", target.address, name.empty() ? "" : " ", name);
}

template <class P>
void ObjcLister<P>::field(std::string_view label, uint64_t value, std::string_view note) {
  output_->text(label);
  output_->print(" {:#x}{}\n", value, note);
}

template <class P>
void ObjcLister<P>::textField(std::string_view label, const Target& target) {
  output_->text(label);
  output_->print(" {:#x}", target.address);
  if (const auto text = reader_.textAt(target.address)) output_->print(" {}", *text);
  output_->text("\n");
}

template <class P>
bool ObjcLister<P>::list() {
  listSections("__objc_classlist", "__class_list", &ObjcLister::listClass);
  listSections("__objc_classrefs", "__class_refs", &ObjcLister::ignore);
  listSections("__objc_superrefs", "__super_refs", &ObjcLister::ignore);
  listSections("__objc_catlist", "__category_list", &ObjcLister::listCategory);
  listSections("__objc_protolist", "__protocol_list", &ObjcLister::ignore);
  listImageInfo();
  return sound_;
}

template <class P>
void ObjcLister<P>::listSections(std::string_view name, std::string_view oldName,
                                 ListEntry listEntry) {
  for (const auto& section : image_.sections) {
    const std::string_view own = section.sectname.view();
    if (own != name && (own != oldName || section.segname.view() != "__OBJC2")) continue;
    output_->print("Contents of ({},{}) section\n", section.segname.view(), own);
    const uint64_t start = section.addr, size = section.size;
    for (uint64_t at = 0; at + kPointer <= size && goesOn(); at += kPointer) {
      const auto target = reader_.at(start + at);
      if (!target) {
        sound_ = false;
        return;
      }
      output_->print("{:0{}x} {}\n", start + at, 2 * kPointer, named(*target));
      if (target->import.empty()) (this->*listEntry)(target->address);
    }
  }
}

template <class P>
void ObjcLister<P>::listImageInfo() {
  for (const auto& section : image_.sections) {
    const std::string_view segment = section.segname.view(), name = section.sectname.view();
    if (name != "__objc_imageinfo" && (name != "__image_info" || segment != "__OBJC2")) continue;
    output_->print("Contents of ({},{}) section\n", segment, name);
    uint32_t version = 0, flags = 0;
    if (!word(section.addr, &version) || !word(uint64_t{section.addr} + 4, &flags)) {
      sound_ = false;
      return;
    }
    uint32_t rest = 0;
    output_->print("  version {}\n    flags {:#x}{}", version, flags,
                   namesOfBits(kImageFlags, flags, &rest));
    if (const uint32_t swift = flags >> 8 & 0xff; swift != 0) {
      const std::string_view known = nameIn(kSwiftVersions, swift);
      output_->print(
          " {}", known.empty() ? fmt::format("unknown future Swift version ({})", swift) : known);
    }
    output_->text("\n");
  }
}

template <class P>
void ObjcLister<P>::listClass(uint64_t address) {
  bool isMeta = false;
  if (!listClassRecord(address, &isMeta) || isMeta) return;
  const Target isa = pointer(address, 0);
  if (isa.address == 0 || !isa.import.empty() || isa.address == address) return;
  if (reader_.bytesAt(isa.address).size() == 0) return;
  output_->text("Meta Class\n");
  listClassRecord(isa.address, &isMeta);
}

template <class P>
bool ObjcLister<P>::listClassRecord(uint64_t address, bool* isMeta) {
  const auto data = reader_.at(address + 4 * kPointer);
  if (!data) return false;
  output_->print("           isa {}\n", named(pointer(address, 0)));
  output_->print("    superclass {}\n", named(pointer(address, 1)));
  output_->print("         cache {}\n", named(pointer(address, 2)));
  output_->print("        vtable {}\n", named(pointer(address, 3)));
  // The low bits mark classes of Swift.
  constexpr uint64_t kMarks = kPointer - 1;
  field("          data", data->address & ~kMarks,
        (data->address & kMarks) == 0 ? " (struct class_ro_t *)"
                                      : " (struct class_ro_t *) Swift class");
  listClassData(data->address & ~kMarks, isMeta);
  return true;
}

template <class P>
void ObjcLister<P>::listClassData(uint64_t address, bool* isMeta) {
  constexpr bool kWide = kPointer == 8;
  uint32_t flags = 0, start = 0, size = 0, reserved = 0;
  if (!word(address, &flags) || !word(address + 4, &start) || !word(address + 8, &size)) return;
  uint32_t rest = 0;
  field("                    flags", flags, namesOfBits(kClassFlags, flags, &rest));
  output_->print("            instanceStart {}\n             instanceSize {}\n", start, size);
  if (kWide && word(address + 12, &reserved)) field("                 reserved", reserved);
  *isMeta = (flags & kMetaClass) != 0;

  const uint64_t pointers = address + (kWide ? 16 : 12);
  const uint64_t layout = pointer(pointers, 0).address;
  field("               ivarLayout", layout);
  listLayout(layout);
  textField("                     name", pointer(pointers, 1));
  listPart("              baseMethods", pointer(pointers, 2), &ObjcLister::listPlainMethods,
           " (struct method_list_t *)");
  listPart("            baseProtocols", pointer(pointers, 3), &ObjcLister::listProtocols);
  listPart("                    ivars", pointer(pointers, 4), &ObjcLister::listIvars);
  const uint64_t weak = pointer(pointers, 5).address;
  field("           weakIvarLayout", weak);
  listLayout(weak);
  listPart("           baseProperties", pointer(pointers, 6), &ObjcLister::listProperties);
}

template <class P>
void ObjcLister<P>::listLayout(uint64_t address) {
  if (address == 0) return;
  const auto layout = reader_.textAt(address);
  if (!layout) return;
  output_->text("                layout map: ");
  for (const char byte : *layout) {
    if (!goesOn()) break;
    output_->print("0x{:02x} ", static_cast<unsigned char>(byte));
  }
  output_->text("\n");
}

template <class P>
bool ObjcLister<P>::listHeader(uint64_t address, uint32_t* entrySize, uint32_t* count) {
  if (word(address, entrySize) && word(address + 4, count)) return true;
  sound_ = false;
  return false;
}

template <class P>
bool ObjcLister<P>::printHeader(uint64_t address, uint32_t* count) {
  uint32_t entrySize = 0;
  if (!listHeader(address, &entrySize, count)) return false;
  output_->print("                    entsize {}\n                      count {}\n", entrySize,
                 *count);
  return true;
}

template <class P>
void ObjcLister<P>::listMethods(uint64_t address, std::string_view tabs) {
  uint32_t entrySize = 0, count = 0;
  if (!listHeader(address, &entrySize, &count)) return;
  const bool relative = (entrySize & kRelativeMethods) != 0;
  output_->text(tabs);
  if (relative) {
    output_->print("\t\t   entsize {} (relative) \n", entrySize & ~kMethodListFlags);
  } else {
    output_->print("\t\t   entsize {}\n", entrySize);
  }
  output_->text(tabs);
  output_->print("\t\t     count {}\n", count);
  const uint64_t stride = relative ? 12 : 3 * kPointer;
  uint64_t entry = address + 8;
  for (uint32_t i = 0; i < count && goesOn(); ++i, entry += stride) {
    if (!reader_.bytesAt(entry).contains(0, stride)) {
      sound_ = false;
      return;
    }
    if (relative) {
      listRelativeMethod(entry, (entrySize & kDirectSelectors) != 0, tabs);
    } else {
      listMethod(entry, tabs);
    }
  }
}

template <class P>
void ObjcLister<P>::listMethod(uint64_t address, std::string_view tabs) {
  output_->text(tabs);
  textField("\t\t      name", pointer(address, 0));
  output_->text(tabs);
  textField("\t\t     types", pointer(address, 1));
  const Target imp = pointer(address, 2);
  const std::string_view symbol = imp.address == 0 ? imp.import : reader_.symbolAt(imp.address);
  output_->text(tabs);
  output_->text("\t\t       imp ");
  // With 64 bits the symbol stands in place of the address.
  if (kPointer == 4) {
    output_->print("{:#x}{}{}\n", imp.address, symbol.empty() ? "" : " ", symbol);
  } else if (symbol.empty()) {
    output_->print("{:#x} \n", imp.address);
  } else {
    output_->print("{}\n", symbol);
  }
}

template <class P>
void ObjcLister<P>::listRelativeMethod(uint64_t address, bool direct, std::string_view tabs) {
  const char* const labels[] = {"     name", "    types", "      imp"};
  for (uint64_t i = 0; i < 3; ++i) {
    const uint64_t place = address + 4 * i;
    uint32_t distance = 0;
    if (!word(place, &distance)) return;
    const uint64_t target = static_cast<typename P::Integer>(
        place + static_cast<uint64_t>(int64_t{static_cast<int32_t>(distance)}));
    output_->text(tabs);
    output_->print("\t\t {} {:#x} ({:#x})", labels[i], distance, target);
    std::optional<std::string_view> text;
    if (i == 2) {
      text = reader_.symbolAt(target);
    } else {
      // The name is found through a pointer to the selector.
      text = reader_.textAt(i == 0 && !direct ? pointer(target, 0).address : target);
    }
    output_->print("{}{}\n", text && !text->empty() ? " " : "", text.value_or(""));
  }
}

template <class P>
void ObjcLister<P>::listProtocols(uint64_t address) {
  typename P::Address stored;  // a number, even among chained pointers
  if (!reader_.read(address, &stored)) {
    sound_ = false;
    return;
  }
  const uint64_t count = stored;
  output_->print("                      count {}\n", count);
  for (uint64_t i = 0; i < count && goesOn(); ++i) {
    const auto protocol = reader_.at(address + (i + 1) * kPointer);
    if (!protocol) {
      sound_ = false;
      return;
    }
    output_->print("\t\t      list[{}] {:#x} (struct protocol_t *){}{}\n", i, protocol->address,
                   protocol->import.empty() ? "" : " ", protocol->import);
    if (protocol->import.empty()) listProtocol(protocol->address);
  }
}

template <class P>
void ObjcLister<P>::listProtocol(uint64_t address) {
  if (!reader_.bytesAt(address).contains(0, 8 * kPointer)) return;
  output_->print("\t\t\t      isa {}\n", named(pointer(address, 0)));
  textField("\t\t\t     name", pointer(address, 1));
  field("\t\t\tprotocols", pointer(address, 2).address);
  const uint64_t instanceMethods = pointer(address, 3).address;
  field("\t\t  instanceMethods", instanceMethods, " (struct method_list_t *)");
  if (instanceMethods != 0) listMethods(instanceMethods, "\t");
  const uint64_t classMethods = pointer(address, 4).address;
  field("\t\t     classMethods", classMethods, " (struct method_list_t *)");
  if (classMethods != 0) listMethods(classMethods, "\t");
  field("\t  optionalInstanceMethods", pointer(address, 5).address);
  field("\t     optionalClassMethods", pointer(address, 6).address);
  field("\t       instanceProperties", pointer(address, 7).address);
}

template <class P>
void ObjcLister<P>::listIvars(uint64_t address) {
  uint32_t count = 0;
  if (!printHeader(address, &count)) return;
  constexpr uint64_t kStride = 3 * kPointer + 8;
  uint64_t entry = address + 8;
  for (uint32_t i = 0; i < count && goesOn(); ++i, entry += kStride) {
    uint32_t offset = 0, alignment = 0, size = 0;
    if (!word(entry + 3 * kPointer, &alignment) || !word(entry + 3 * kPointer + 4, &size)) {
      sound_ = false;
      return;
    }
    const uint64_t place = pointer(entry, 0).address;
    output_->print("\t\t\t   offset {:#x}", place);
    if (word(place, &offset)) output_->print(" {}", offset);
    output_->text("\n");
    textField("\t\t\t     name", pointer(entry, 1));
    textField("\t\t\t     type", pointer(entry, 2));
    output_->print("\t\t\talignment {}\n\t\t\t     size {}\n", alignment, size);
  }
}

template <class P>
void ObjcLister<P>::listProperties(uint64_t address) {
  uint32_t count = 0;
  if (!printHeader(address, &count)) return;
  uint64_t entry = address + 8;
  for (uint32_t i = 0; i < count && goesOn(); ++i, entry += 2 * kPointer) {
    if (!reader_.bytesAt(entry).contains(0, 2 * kPointer)) {
      sound_ = false;
      return;
    }
    textField("\t\t\t     name", pointer(entry, 0));
    textField("\t\t\tattributes", pointer(entry, 1));
  }
}

template <class P>
void ObjcLister<P>::listCategory(uint64_t address) {
  if (!reader_.bytesAt(address).contains(0, 6 * kPointer)) {
    sound_ = false;
    return;
  }
  textField("              name", pointer(address, 0));
  const Target cls = pointer(address, 1);
  output_->print("               cls {:#x}{}{}\n", cls.address, cls.import.empty() ? "" : " ",
                 cls.import);
  if (cls.address != 0 && cls.import.empty()) listClass(cls.address);
  listPart("   instanceMethods", pointer(address, 2), &ObjcLister::listPlainMethods);
  listPart("      classMethods", pointer(address, 3), &ObjcLister::listPlainMethods);
  listPart("         protocols", pointer(address, 4), &ObjcLister::listProtocols);
  listPart("instanceProperties", pointer(address, 5), &ObjcLister::listProperties);
}

}  // namespace

template <class P>
bool listObjectiveC(const macho::Image<P>& image, Output* output) {
  return ObjcLister<P>(image, output).list();
}

#define TOVREK_INSTANTIATE(P) template bool listObjectiveC(const macho::Image<P>&, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
