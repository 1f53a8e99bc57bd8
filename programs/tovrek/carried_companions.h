// The companions that Tovrek carries.
#pragma once

namespace tovrek::toolkit {

// From now on they are run by copies of this process where their files would be started.
void bringCompanions();

}  // namespace tovrek::toolkit
