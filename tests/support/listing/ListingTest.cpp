#include "tests/support/listing/ListingTest.h"

#include <gmock/gmock.h>
#include <re2/re2.h>

namespace tovrek::test {
namespace {

// Everything that listings tell apart: properties of instances and classes, protocols with
// optional methods, categories of own and of foreign classes, a class without methods.
constexpr char kSource[] = R"(
@class Protocol;
__attribute__((objc_root_class)) @interface Root { Class isa; }
+ (id)alloc;
- (id)init;
@end
@protocol Base
- (void)baseRequired;
+ (int)baseClass;
@end
@protocol Driver <Base>
- (void)application:(id)a willFinish:(id)o;
@optional
- (int)optionalThing:(int)x;
@property (readonly) int speed;
@end
@interface Gear : Root <Driver> { int count; id weakOne; double ratio; signed char flag; id title; }
@property (class, readonly) int total;
@property (copy) id title;
@end
@implementation Gear
@dynamic title;
+ (int)total { return 3; }
+ (int)baseClass { return 1; }
- (void)baseRequired {}
- (int)speed { return 4; }
- (void)application:(id)a willFinish:(id)o {}
- (id)init { return [super init]; }
@end
@interface Gear (Extra) <Base>
@property (readonly) int extra;
@end
@implementation Gear (Extra)
- (int)extra { return 5; }
+ (void)load {}
@end
@interface Elsewhere : Root
@end
@implementation Elsewhere (Mine)
- (void)mine {}
@end
@interface Small : Gear
@end
@implementation Small
@end
int common;
static int zero;
int number = 7;
extern int missing(void) __attribute__((weak_import));
__attribute__((weak)) int weak(void) { return 1; }
__attribute__((visibility("hidden"))) int hidden(void) { return zero++ + common + number; }
int main(void) {
  [[Gear alloc] init];
  [[Elsewhere alloc] init];
  return (int)(long)@protocol(Driver) + (missing ? missing() : hidden()) + weak();
}
)";

}  // namespace

std::string replaced(std::string text, const std::string& pattern, const std::string& by) {
  RE2::GlobalReplace(&text, pattern, by);
  return text;
}

std::string ListingTest::host(const std::vector<std::string>& argv) {
  Command command{.argv = argv, .standardError = StandardError::kMergeIntoOutput};
  // Time stamps are shown in the local zone.
  command.environment = {{"TZ", "UTC"}};
  Outcome outcome;
  EXPECT_TRUE(runProcess(command, &outcome)) << argv[0];
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(argv) << outcome.output;
  return outcome.output;
}

std::string ListingTest::own(const std::vector<std::string>& words) {
  std::vector<std::string> argv = words;
  argv.front() = companion(argv.front());
  return host(argv);
}

std::string ListingTest::object(const std::string& arch) {
  const std::string source = folder_.write("source.m", kSource);
  std::string path = folder_.file(arch + ".o");
  host({TOVREK_CLANG, "-target", arch + "-apple-ios9", "-w", "-Os", "-fcommon", "-c", source, "-o",
        path});
  return path;
}

void ListingTest::expectAnswer(const std::string& program, const Answer& answer) {
  std::vector<std::string> words = {program};
  words.insert(words.end(), answer.words.begin(), answer.words.end());
  SCOPED_TRACE(testing::PrintToString(words));
  const Outcome outcome = run(words);
  EXPECT_EQ(outcome.status, answer.status);
  EXPECT_THAT(outcome.output, testing::HasSubstr(answer.output));
  EXPECT_THAT(outcome.errorOutput, testing::HasSubstr(answer.error));
}

std::string ListingTest::linked(const std::vector<std::string>& options) {
  std::string path = folder_.file("linked");
  std::vector<std::string> argv = {TOVREK_LD64_LLD,
                                   "-arch",
                                   "arm64",
                                   "-platform_version",
                                   "ios",
                                   "9.0",
                                   "12.0",
                                   "-ObjC",
                                   "-undefined",
                                   "dynamic_lookup",
                                   "-o",
                                   path,
                                   object("arm64"),
                                   std::string(TOVREK_SOURCE_DIR) + "/demo/stubs/libSystem.tbd"};
  argv.insert(argv.end(), options.begin(), options.end());
  host(argv);
  return path;
}

std::string ListingTest::universal() {
  const std::string path = folder_.file("universal");
  own({"lipo", "-create", linked(), object("x86_64"), object("armv7"), "-output", path});
  return path;
}

}  // namespace tovrek::test
