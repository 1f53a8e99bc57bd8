// What kind of executable the engine works on.
#pragma once

namespace tovrek {

// Other values insert nothing.
enum ORVApp_BinaryType : int { kOrderCheckOnly = 0, kAppExtension = 1, kApplication = 2 };

}  // namespace tovrek
