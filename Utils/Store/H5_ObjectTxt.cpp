#include "Utils/Store/H5_ObjectTxt.hpp"

#include <numeric>
#include <ostream>
#include <vector>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5Type.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/Tables/ChunkReader.hpp"

template struct Factory::Register<H5_Objects::Txt>;

namespace H5_Objects {

std::string Txt::Help() {
  return "H5_Object::Txt                                                 \n"
         "   Writes ASCII text, i.e. a string, into a data-set           \n"
         "   new text is appended via operator<<                         \n"
         "                                                               \n"
         "   Data is stored by default as an array of strings, and the   \n"
         "   class can append new text by adding a new string to the     \n"
         "   array.                                                      \n"
         "   The class can also read data if it is stored as either      \n"
         "   a single string (as Quillon does), or an array of char's   \n"
         "   (as Vexa used to do in the past). However, for these formats\n"
         "   the dataset cannot be extended.                             \n";
}

Txt::Txt(const std::string& name, bool existsOnDisk, int verbosity)
    : StringDataSet("H5_ObjectTxt", "Txt", {16}, name, existsOnDisk, verbosity) {
  // Without this, text would be lost without a word where memory is exhausted.
  mText.exceptions(std::ios_base::badbit);
}

void Txt::TakeExisting(const std::vector<hsize_t>& dims) {
  const std::size_t ndims = dims.size();
  REQUIRE(ndims==0 || ndims==1, "Expected dim of 0 or 1, got " << ndims);
}

void Txt::WriteCache() {
  const Vexa::InsideStore inside;
  mOldDatatype = mOldDatatype || (IsObjectOpen() && SizeOfCache() > 0 && HoldsCharacters());
  REQUIRE(!mOldDatatype, "Cannot write new Txt format into "
          << mName << ",\nwhich has existing data in the old Txt format.");
  StringDataSet::WriteCache();
}

std::vector<std::string> Txt::WaitingStrings() const {
  std::vector<std::string> strings;
  strings.push_back(mText.str());  // moved: a text may be long
  return strings;
}

void Txt::RequireWritable(const std::vector<std::string>& strings) const {
  const std::vector<hsize_t> dims = ExtentsInFile();
  const std::size_t ndims = dims.size();
  REQUIRE(ndims!=0, "H5_ObjectTxt attempting to append to a *scalar* string dataset\n"
          << "Such datasets are not written by H5_ObjectTxt, but could be created\n"
          << "by e.g. Quillon\n"
          << "Appending to such strings in H5_ObjectTxt is not supported");
  REQUIRE(ndims==1, "Dimension mismatch.");
  REQUIRE(dims[0]==mSize, "Extents inconsistent between memory and file");
  const std::string& text = strings[0];
  REQUIRE(text.find('\0')==std::string::npos,
          "Text of " << mName << " holds a null character, which a string in a file cannot");
  mTrace.Line(5, "Txt append 1 string to '", mName, "' (new size=", mSize + 1, ")");
}

void Txt::DropCache() {
  mText.str("");
  ReportCacheSize();
}

void Txt::RolledBack(bool isFileNew) {
  StringDataSet::RolledBack(isFileNew);
  mOldDatatype = mOldDatatype && !isFileNew;
}

std::string Txt::RetrieveData() {
  const Vexa::ReportAs label("H5_ObjectTxt");
  REQUIRE(IsObjectOpen(), "Dataset must be opened first");
  const std::vector<hsize_t> dims = ExtentsInFile();
  const std::size_t ndims = dims.size();
  REQUIRE(ndims==1 or ndims==0, "Expected dim of 0 or 1, got " << ndims);
  REQUIRE(ndims==0 or dims[0]==mSize, "Extents inconsistent between memory and file");
  mOldDatatype = HoldsCharacters();
  if (mOldDatatype) {
    return RetrieveCharacters();
  }
  if (ndims == 0) {
    REQUIRE(mSize==1, "dataset-size inconsistent with expected size");
  }
  std::string text;
  for (const std::string& piece : ReadAllStrings(mSize)) {
    text += piece;
  }
  return text;
}

std::string Txt::RetrieveReadable_(std::uint64_t& count) {
  const Vexa::ReportAs label("H5_ObjectTxt");
  count = mSize;
  if (ExtentsInFile().size() != 1 || HoldsCharacters()) {
    return RetrieveData();
  }
  std::vector<std::string> readable;
  std::uint64_t end = mSize + 1;  // so many cannot be read
  for (std::uint64_t most = mSize; readable.size() + 1 < end;
       most = readable.size() + (end - readable.size()) / 2) {
    try {
      readable = ReadFirstStrings(most);
    } catch (const CodeError&) {
      end = most;
    }
  }
  count = readable.size();
  return std::accumulate(readable.begin(), readable.end(), std::string());
}

bool Txt::HoldsCharacters() const {
  return H5TypesEqual(mMy_id, H5Type<char>());
}

std::string Txt::RetrieveCharacters() const {
  const Vexa::ReportAs label("H5_ObjectTxt");
  Tables::RequireSoundStorage(mMy_id, static_cast<long double>(mSize), mName);
  std::string text(mSize, '\0');
  if (mSize > 0) {
    const herr_t err =
        mTrace(5, H5Dread(mMy_id, H5Type<char>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, text.data()),
               "H5Dread(", mMy_id, ", ...)");
    REQUIRE(err>=0, "H5Dread failed");
  }
  // Null characters at the end are what the writer ended or filled its array with.
  text.erase(text.find_last_not_of('\0') + 1);
  return text;
}

unsigned long long Txt::GetSize() const {
  REQUIRE(AreAttributesKnown(), "Must OpenObject before calling GetSize");
  return mSize + NTimeStepsCached();
}

std::ostream& Txt::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  if (AreAttributesKnown()) {
    os << GetSize() << " strings";
  } else {
    os << "size unknown";
  }
  return mText.good() ? os : os << ", internal stringstream reports NOT good()";
}

}  // namespace H5_Objects
