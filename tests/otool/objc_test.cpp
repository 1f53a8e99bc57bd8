// otool -o with the pointers of an image in each form that linkers write.

#include <map>
#include <sstream>

#include "macho/ChainedPointer.h"
#include "tests/otool/PlainImage.h"
#include "tests/support/listing/ListingTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

class Objc : public ListingTest {
 protected:
  // Names that LLVM 14 leaves out: of imports, but for superclasses, classes and references in
  // 64-bit images. It reads eight bytes of the four that hold an ivar's offset, and leaves out
  // the names of categories in 32-bit images.
  static std::string normalised(std::string text) {
    text = replaced(text, "( (?:isa|superclass|cache|vtable|cls) 0x0) .*", "\\1");
    return replaced(text, "(\t   offset 0x\\w+) .*", "\\1");
  }

  // Without the form of the method lists.
  static std::string withoutForm(std::string text) {
    text = text.substr(text.find('\n'));
    text = replaced(text, "entsize (24|12 \\(relative\\) )\n", "entsize\n");
    text = replaced(text, "(\t +(?:name|types|imp)) 0x\\w+(?: \\(0x\\w+\\))?", "\\1");
    return replaced(text, " +\n", "\n");
  }
};

TEST_F(Objc, PlainPointersAsLlvmLists) {
  for (const std::string& path : {linked(), linked({"-dylib"}), linked({"-bundle"})}) {
    const std::string listing = own({"otool", "-o", path});
    EXPECT_EQ(normalised(listing),
              normalised(host({TOVREK_LLVM_OBJDUMP, "-m", "--objc-meta-data", path})));
    for (const char* line :
         {"\t\t      name 0x", " application:willFinish:\n", "imp -[Gear(Extra) extra]\n",
          "    superclass 0x0 _OBJC_CLASS_$_Root\n", "         cache 0x0 __objc_empty_cache\n",
          "               cls 0x0 _OBJC_CLASS_$_Elsewhere\n",
          "Contents of (__DATA,__objc_protolist)"}) {
      EXPECT_THAT(listing, HasSubstr(line));
    }
  }
}

// The same image, its pointers rewritten into chains, must list the same.
TEST_F(Objc, ChainedPointersListAsPlainOnes) {
  const std::string path = linked();
  const PlainImage plain(contentsOf(path),
                         host({TOVREK_LLVM_OBJDUMP, "-m", "--rebase", "--bind", path}));
  const std::string expected = own({"otool", "-oX", path});
  for (const uint16_t format :
       {macho::DYLD_CHAINED_PTR_ARM64E, macho::DYLD_CHAINED_PTR_64,
        macho::DYLD_CHAINED_PTR_64_OFFSET, macho::DYLD_CHAINED_PTR_ARM64E_KERNEL,
        macho::DYLD_CHAINED_PTR_ARM64E_USERLAND, macho::DYLD_CHAINED_PTR_ARM64E_FIRMWARE,
        macho::DYLD_CHAINED_PTR_ARM64E_USERLAND24}) {
    for (const uint32_t imports : {1u, 2u, 3u}) {
      const std::string chained = folder_.write("chained", plain.chained(format, imports));
      EXPECT_EQ(own({"otool", "-oX", chained}), expected) << format << " " << imports;
    }
  }
}

TEST_F(Objc, RelativeMethodListsListAsPlainOnes) {
  const std::string listing = own({"otool", "-o", linked()});
  PlainImage image(contentsOf(folder_.file("linked")), "");
  image.makeMethodListsRelative(listing);
  const std::string relative = own({"otool", "-o", folder_.write("relative", image.bytes)});
  EXPECT_THAT(relative, testing::ContainsRegex("name 0x[0-9a-f]+ .0x1[0-9a-f]+. baseRequired\n"));
  EXPECT_EQ(withoutForm(relative), withoutForm(listing));
}

// The listings of LLVM for object files leave out addresses; names must be there all the same.
TEST_F(Objc, ObjectFilesOfBothWidths) {
  for (const char* arch : {"arm64", "x86_64", "armv7"}) {
    const std::string listing = own({"otool", "-o", object(arch)});
    for (const char* line :
         {" _OBJC_CLASS_$_Gear\n           isa 0x", "    superclass 0x0 _OBJC_CLASS_$_Root\n",
          " application:willFinish:\n", "-[Gear(Extra) extra]\n", " 0x0 _OBJC_CLASS_$_Elsewhere\n",
          "[0] 0x", " Driver\n", "RO_META\n"}) {
      EXPECT_THAT(listing, HasSubstr(line)) << arch;
    }
  }
}

}  // namespace
}  // namespace tovrek::test
