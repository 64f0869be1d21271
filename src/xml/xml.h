// Holds what trees and documents in files share.
#pragma once

namespace torvane {

constexpr char xml_version[] = "1.0";

} // namespace torvane
