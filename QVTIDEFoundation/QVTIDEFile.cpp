#include "QVTIDEFoundation/QVTIDEFile.h"

using foundation::Dictionary;

std::shared_ptr<QVTIDEFile> QVTIDEFile::initWithObjectDictionaryObjectId(
    const Dictionary* dictionary, std::string objectId) {
  return std::shared_ptr<QVTIDEFile>(new QVTIDEFile(dictionary, std::move(objectId)));
}

QVTIDEFile::QVTIDEFile(const Dictionary* dictionary, std::string objectId)
    : QVTIDESourceTreeObject(dictionary, std::move(objectId)),
      explicitFileType_(QVTIDEReading::text(dictionary, "explicitFileType")),
      lastKnownFileType_(QVTIDEReading::text(dictionary, "lastKnownFileType")) {}

std::string QVTIDEFile::description() const {
  return QVTIDESourceTreeObject::description() + " " + name().value_or("(null)");
}
