// Any answer of a web service as the description of a job: a text that is no document changes nothing, and fields that are
// written into a description are read from it.
#include "fuzz.h"
#include "qvfilecacheimpl_http.h"
#include "qvxdom/qvdom.h"

namespace {

void checkWritten(const QvbString& date, const QvbString& path, const QvbString& link) {
  QvDom dom;
  require(dom.startNewDocument("processjob"));
  QvDomNode job = dom.getRoot();
  job.setAttributeValue("modifiedDate", date);
  job.setAttributeValue("path", path);
  QvDomNode self = job.addChild("links").addChild("link");
  self.setAttributeValue("rel", "self");
  self.setAttributeValue("href", link);
  HTTPRemoteFileInfo record;
  RemoteHttpFileProvider::populateFileInfo(&record, dom.createXML(true, dom.getRoot()));
  require(isSameInXml(record.modifiedDate, date) && isSameInXml(record.path, path) &&
          isSameInXml(record.contentLink, link));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const QvbString body = textOf(data, size);
  HTTPRemoteFileInfo record;
  RemoteHttpFileProvider::populateFileInfo(&record, body);
  QvDom dom;
  if (!dom.loadXML(body))
    require(record.modifiedDate.isEmpty() && record.path.isEmpty() && record.contentLink.isEmpty());
  const auto fields = fieldsOf(data, size, 3);
  checkWritten(fields[0], fields[1], fields[2]);
  return 0;
}
