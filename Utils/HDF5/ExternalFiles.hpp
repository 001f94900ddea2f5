// Which files external links led to: what is read through a link is part of what a file says, and
// must not change either while it is read.
#pragma once

#include <hdf5.h>

#include <map>
#include <string>
#include <vector>

namespace Vexa_H5 {

/// Must be called when the library is about to follow an external link of the open file
/// `parentFile`, which may lead to any of `places`.
void NoteExternalLink(const std::string& parentFile, const std::vector<std::string>& places);

/// Must be called after each opening of a group or dataset, even if the opening failed. The call
/// costs nothing where no external link was followed.
void NoteOpened(hid_t id);

/// Returns the files to which external links led from the file with this real path, in this process
/// so far, those behind a link in such a file included: real paths, and the FileStamp() that each
/// file had before it was first opened.
std::map<std::string, std::string> ExternalFilesOf(const std::string& path);

}  // namespace Vexa_H5
