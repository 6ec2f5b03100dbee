// Temporary folders whose process ended without removing them, told from those in use by a lock that ends with its process.
#pragma once

#include <string>

namespace npfio {

// Marks the open folder as one that may be removed once nobody has it open as this descriptor does. A file system that
// has no locks or no attributes leaves it unmarked, and so in place.
void markTemporary(int folder);
// Removes the marked folders of this user below the root that no process has open, with the files in them. What cannot be
// removed stays for the next time.
void removeAbandoned(const std::string& root);

} // namespace npfio
