// The life of HDF5 in a process. A program may have used the library before the store does, and may
// end it by H5close() at any time, after which it starts anew with the next call. It gives the same
// identifiers again then, so that one from an earlier life can be somebody else's.
#pragma once

#include <hdf5.h>

#include <string>
#include <vector>

namespace Vexa_H5 {

/// Starts the library if it does not run. The number is another in each of its lives.
unsigned long LibraryLife();

/// A KeptId keeps an identifier, of a property list for instance, that is made once in each life of
/// the library.
class KeptId {
 public:
  template <class Make>
  hid_t Get(const Make& make) {
    if (mLife != LibraryLife()) {
      mId = make();
      mLife = LibraryLife();
    }
    return mId;
  }

 private:
  hid_t mId = -1;
  unsigned long mLife = 0;
};

/// `function`, or none if null, is called when the library ends, which makes all identifiers void.
/// It must not call the library.
void SetOnLibraryEnd(void (*function)());

/// Starts the library and arranges how it ends with the process. To be called by the constructor of
/// the object that closes its files at exit: that is done before the library ends.
///
/// A library that the store started is closed by us, so that what the program itself left open
/// is written. One that ran already does that in an exit handler of its own. Neither is done if a
/// file of ours was not closed: the handler would make it look like a whole one, or crash where its
/// close failed. Then the process ends at once, with the status that it had.
void ArrangeLibraryEnd();

/// Ends the process without any further exit handler, but for the output of streams.
[[noreturn]] void EndProcess(int status);

/// Returns what the library says about a failure, from the cause outwards, names in it included.
std::vector<std::string> ErrorDescriptions(hid_t stack);

/// Counts the files of ours that are open: 1 for one more, -1 for one that was closed.
void CountOpenFiles(int change);

}  // namespace Vexa_H5
