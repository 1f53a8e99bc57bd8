#include "programs/otool/thread_listing.h"

#include <span>
#include <string>

#include "macho/pointer_models.h"
#include "programs/otool/names.h"

namespace tovrek::otool {
namespace {

using listing::Output;

// The rows of a register state as printed: each "{}" takes the next register, written in full.
struct StateForm {
  uint32_t cputype, flavor;
  std::string_view name;
  uint32_t words;         // of 32 bits
  uint32_t registerSize;  // bytes
  std::string_view rows;
  uint32_t lastSize = 0;  // bytes of the last register where it differs
};

constexpr uint32_t kArm64 = macho::kCpuArm | macho::kCpuArch64;
constexpr uint32_t kX86With64 = macho::kCpuX86 | macho::kCpuArch64;
constexpr uint32_t kX86AnyState = 7;

constexpr StateForm kStates[] = {
    {macho::kCpuX86, 1, "i386_THREAD_STATE", 16, 4,
     "\t    eax {} ebx    {} ecx {} edx {}\n\t    edi {} esi    {} ebp {} esp {}\n"
     "\t    ss  {} eflags {} eip {} cs  {}\n\t    ds  {} es     {} fs  {} gs  {}\n"},
    {kX86With64, 4, "x86_THREAD_STATE64", 42, 8,
     "   rax  {} rbx {} rcx  {}\n   rdx  {} rdi {} rsi  {}\n   rbp  {} rsp {} r8   {}\n"
     "    r9  {} r10 {} r11  {}\n   r12  {} r13 {} r14  {}\n   r15  {} rip {}\n"
     "rflags  {} cs  {} fs   {}\n    gs  {}\n"},
    {macho::kCpuArm, 1, "ARM_THREAD_STATE", 17, 4,
     "\t    r0  {} r1     {} r2  {} r3  {}\n\t    r4  {} r5     {} r6  {} r7  {}\n"
     "\t    r8  {} r9     {} r10 {} r11 {}\n\t    r12 {} sp     {} lr  {} pc  {}\n"
     "\t   cpsr {}\n"},
    {kArm64, 6, "ARM_THREAD_STATE64", 68, 8,
     "\t    x0  {} x1  {} x2  {}\n\t    x3  {} x4  {} x5  {}\n\t    x6  {} x7  {} x8  {}\n"
     "\t    x9  {} x10 {} x11 {}\n\t    x12 {} x13 {} x14 {}\n\t    x15 {} x16 {} x17 {}\n"
     "\t    x18 {} x19 {} x20 {}\n\t    x21 {} x22 {} x23 {}\n\t    x24 {} x25 {} x26 {}\n"
     "\t    x27 {} x28 {}  fp {}\n\t     lr {} sp  {}  pc {}\n\t   cpsr {}\n",
     4},
    {macho::kCpuPowerPc, 1, "PPC_THREAD_STATE", 40, 4,
     "    srr0 {} srr1 {}\n    r0  {} r1  {} r2  {} r3  {}\n    r4  {} r5  {} r6  {} r7  {}\n"
     "    r8  {} r9  {} r10 {} r11 {}\n    r12 {} r13 {} r14 {} r15 {}\n"
     "    r16 {} r17 {} r18 {} r19 {}\n    r20 {} r21 {} r22 {} r23 {}\n"
     "    r24 {} r25 {} r26 {} r27 {}\n    r28 {} r29 {} r30 {} r31 {}\n"
     "    cr  {} xer {} lr  {} ctr {}\n    mq  {} vrsave {}\n"},
};

constexpr StateForm kExceptionState64 = {
    kX86With64, 6, "x86_EXCEPTION_STATE64", 4, 4, "\t    trapno {} err {} faultvaddr {}\n", 8};

const StateForm* stateForm(uint32_t cputype, uint32_t flavor) {
  for (const StateForm& form : kStates) {
    if (form.cputype == cputype && form.flavor == flavor) return &form;
  }
  return cputype == kX86With64 && flavor == kExceptionState64.flavor ? &kExceptionState64 : nullptr;
}

template <class P>
class StateReader {
 public:
  StateReader(uint32_t cputype, macho::ByteView bytes, Output* output)
      : cputype_(cputype), bytes_(bytes), output_(output) {}

  void list() {
    uint32_t flavor = 0, count = 0;
    while (word(&flavor) && word(&count)) listState(flavor, count);
  }

 private:
  bool word(uint32_t* value) {
    typename P::Word stored;
    if (!bytes_.read(at_, &stored)) return false;
    at_ += sizeof(stored);
    *value = stored;
    return true;
  }

  void listState(uint32_t flavor, uint32_t count) {
    const uint64_t size = uint64_t{count} * 4;
    const StateForm* form = stateForm(cputype_, flavor);
    if (form != nullptr && form->words == count) {
      output_->print("     flavor {0}\n      count {0}_COUNT\n", form->name);
      listRegisters(*form);
      return;
    }
    uint32_t innerFlavor = 0, innerCount = 0;
    if (cputype_ == kX86With64 && flavor == kX86AnyState && count >= 2) {
      const StateForm* inner = nullptr;
      const uint64_t start = at_;
      if (word(&innerFlavor) && word(&innerCount)) inner = stateForm(cputype_, innerFlavor);
      if (inner != nullptr && inner->words == innerCount && innerCount + 2 == count) {
        output_->print(
            "     flavor x86_THREAD_STATE\n      count x86_THREAD_STATE_COUNT\n"
            "\t    tsh.flavor {0} tsh.count {0}_COUNT\n",
            inner->name);
        listRegisters(*inner);
        return;
      }
      at_ = start;
    }
    output_->print("     flavor {}\n      count {}\n      state\n", flavor, count);
    listWords(size);
  }

  void listWords(uint64_t size) {
    const uint64_t end = at_ + size;
    uint32_t value = 0;
    for (int column = 1; at_ < end && word(&value); ++column) {
      output_->print("{:08x}{}", value, column % 8 == 0 || at_ == end ? "\n" : " ");
    }
    at_ = end;
  }

  void listRegisters(const StateForm& form) {
    const uint64_t end = at_ + uint64_t{form.words} * 4;
    std::string_view rest = form.rows;
    for (size_t hole; (hole = rest.find("{}")) != std::string_view::npos;) {
      output_->text(rest.substr(0, hole));
      rest.remove_prefix(hole + 2);
      const bool last = rest.find("{}") == std::string_view::npos;
      listRegister(last && form.lastSize != 0 ? form.lastSize : form.registerSize);
    }
    output_->text(rest);
    at_ = end;
  }

  void listRegister(uint32_t size) {
    macho::Stored<uint64_t, typename P::Order> wide;
    uint32_t narrow = 0;
    if (size == 4 && word(&narrow)) {
      output_->print("0x{:08x}", narrow);
    } else if (size == 8 && bytes_.read(at_, &wide)) {
      output_->print("0x{:016x}", uint64_t{wide});
      at_ += size;
    } else {
      output_->text("?");
    }
  }

  uint32_t cputype_;
  macho::ByteView bytes_;
  Output* output_;
  uint64_t at_ = sizeof(macho::macho_load_command<P>);
};

}  // namespace

template <class P>
void listThread(uint32_t cputype, const macho::CommandView& command, Output* output) {
  output->print("        cmd {}\n    cmdsize {}\n",
                command.cmd == macho::LC_UNIXTHREAD ? "LC_UNIXTHREAD" : "LC_THREAD",
                command.cmdsize);
  StateReader<P>(cputype, command.bytes, output).list();
}

#define TOVREK_INSTANTIATE(P) \
  template void listThread<P>(uint32_t, const macho::CommandView&, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
