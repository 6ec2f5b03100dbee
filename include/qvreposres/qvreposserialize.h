// Repository metadata: typed objects, written as XML and read back.
//
// Types and association names become element names, attribute names stay what they are: whatever of an object has a name
// that XML does not allow is left out of the text without a word. The value of an object is written as its element's
// text; reading leaves text alone, so that values do not come back.
//
// An object tree and its context are for one thread at a time.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"
#include "qvxdom/qvdom.h"

class RepositoryMetadataObjectList;

// An object of a type: attributes, objects that it contains, and others that it refers to.
class QVREPOSRES_API RepositoryMetadataObject {
public:
  // Inserts the attribute or replaces its value; always true. Attributes are kept in the order of their names.
  virtual bool addAttribute(const QvbString& name, const QvbString& value) = 0;
  // The attribute's value. False, with the output untouched, when there is none; the typed reads also when it is empty. Text that
  // is no number or truth value converts to 0 or false.
  virtual bool getAttribute(const QvbString& name, QvbString* value) = 0;
  virtual bool getAttributeAsInt(const QvbString& name, int* value) = 0;
  virtual bool getAttributeAsDouble(const QvbString& name, double* value) = 0;
  virtual bool getAttributeAsBool(const QvbString& name, bool* value) = 0;
  // Refers to an object that stays its owner's and has to outlive every toXML() of this one. The result is true only for a
  // further object of a known association: the first one is added with the result false.
  virtual bool addAssociatedObject(const QvbString& association, RepositoryMetadataObject* object) = 0;
  // A new list, never null, that the caller releases; the objects are not its own.
  virtual RepositoryMetadataObjectList* getAssociatedObjects(const QvbString& association) = 0;
  // A reference to the object's own text, good until its next change.
  virtual const QvbString& getId() = 0;
  // Sets the attribute "Id" as well.
  virtual void setId(const QvbString& id) = 0;
  // A reference to its type, good as that to its id.
  virtual const QvbString& getObjectType() = 0;
  // Makes it an object of another type.
  virtual void setObjectType(const QvbString& type) = 0;
  virtual void release() = 0;
  // Writes attributes, contained objects, associations (by reference) and value into the element; the result is that of
  // the last contained object. Each object is written in full wherever it is contained, so that a few of them can stand at
  // any number of places. A document that would hold more than 16,777,216 objects or more than QvDom::MaxSize bytes is
  // given up: false, with a part of it in the element.
  virtual bool toXML(QvDomNode* node) = 0;
  // The parent owns the object from then on. False, with nothing changed, for one that it contains already and for one
  // that contains the parent itself, at any depth. Objects of an application's own class are not looked into for that.
  // Building a graph of m containments costs m steps where it grows at its top or bottom, and at most m * sqrt(m) in any
  // other way; a refusal costs what it takes to find the circle.
  virtual bool addContainedObject(RepositoryMetadataObject* object) = 0;
  // What it contains, as a new list that the caller releases.
  virtual RepositoryMetadataObjectList* getContainedObjects() = 0;
  // The element's text; always true.
  virtual bool setValue(const QvbString& value) = 0;

protected:
  ~RepositoryMetadataObject() = default;
};

// A snapshot of objects, read with the cursor that qvresource.h describes; it never releases them.
class QVREPOSRES_API RepositoryMetadataObjectList {
public:
  virtual bool next() = 0;
  // The object under the cursor, which stays its owner's; null off the rows.
  virtual RepositoryMetadataObject* getValue() = 0;
  virtual void release() = 0;
  // Does nothing: setLastRowElement appends.
  virtual bool addRow() = 0;
  // Appends the object, whatever the column.
  virtual void setLastRowElement(unsigned long column, RepositoryMetadataObject* object) = 0;
  // By id, without regard to case. It leaves the cursor on the element after the match, or at the end.
  virtual bool contains(RepositoryMetadataObject* object) = 0;

protected:
  ~RepositoryMetadataObjectList() = default;
};

// How an action ended or went on; the values choose the log level.
enum RepositoryActionLogStatus : int {
  RepositoryActionLogError = 0,
  RepositoryActionLogWarning = 1,
  RepositoryActionLogSuccess = 2,
  RepositoryActionLogInfo = 3,
  RepositoryActionLogTrace = 4
};

// Implemented by applications that want to hear of a context's actions; owned by them.
class QVREPOSRES_API RepositoryActionEvent {
public:
  virtual ~RepositoryActionEvent() = default;
  // `objectInfo` is the repository URI that setEventObjectInfo made. The result is passed on to who logged.
  virtual int actionLogged(RepositoryActionLogStatus status, const QvbString& objectInfo,
                           const QvbString& message) = 0;
};

// Objects by type and id, and the documents that are written of them and read back.
class QVREPOSRES_API RepositorySerializationContext {
public:
  // The object of this type and id, made when there is none; the context owns it until clear(). An id is one object's at
  // a time: asked for with another type, it gets a new object, and the earlier one becomes the caller's, to be released
  // by whoever has it (one that the document being read has made stays the context's).
  virtual RepositoryMetadataObject* getMetadataObject(const QvbString& objectType, const QvbString& id) = 0;
  // The first object of this type whose attribute has this value, both without regard to case; made with a fresh id when
  // there is none.
  virtual RepositoryMetadataObject* getMetadataObjectByAttribute(const QvbString& objectType,
                                                                 const QvbString& attributeName,
                                                                 const QvbString& attributeValue) = 0;
  virtual void release() = 0;
  // Appends the document of the object and of every other object of the context to `xml` (optional), each with all that
  // it contains: an object of the context that stands below another is written there and beside it. An object whose type
  // is no name of XML is left out. `message` is not used. With `layout` each element stands on a line of its own. False,
  // with nothing appended, for no object, for a root whose name XML does not allow, and for a document that toXML() gives
  // up or that its reader would refuse (see qvdom.h).
  virtual bool serialize(RepositoryMetadataObject* object, QvbString* xml, QvbString* message,
                         bool layout) = 0;
  // Reads such a document; the first top-level object, owned by the context, or null. An element that would make an
  // object contain itself is read, but not contained: what is contained already, and what comes first within the objects
  // of the document from the first one down, stays. When memory runs out the context is what it was.
  virtual RepositoryMetadataObject* deSerialize(const QvbString& xml, QvbString* message) = 0;
  // Properties beside the object, under the id that it has at the time of the call; they are not written. False for a
  // null object. The reads are true for every other object, and leave the output untouched when nothing is set.
  virtual bool addImportProperty(RepositoryMetadataObject* object, const QvbString& name,
                                 const QvbString& value) = 0;
  virtual bool addImportPropertyAsInt(RepositoryMetadataObject* object, const QvbString& name, int value) = 0;
  virtual bool getImportProperty(RepositoryMetadataObject* object, const QvbString& name,
                                 QvbString* value) = 0;
  virtual bool getImportPropertyAsInt(RepositoryMetadataObject* object, const QvbString& name,
                                      int* value) = 0;
  // Releases the objects and forgets everything, the event handler included.
  virtual bool clear() = 0;
  // Makes the repository URI of path and object type the information that goes with every action.
  virtual bool setEventObjectInfo(const QvbString& path, const QvbString& objectType) = 0;
  // Tells this handler of every action from now on; null ends that.
  virtual bool setEventHandler(RepositoryActionEvent* handler) = 0;
  // Tells the handler and the log; the handler's result, 0 without one.
  virtual int logEvent(RepositoryActionLogStatus status, const QvbString& message) = 0;
  // Whether the serialized object is the document's root itself; true when this changed.
  virtual bool setSerializationOfRelationships(bool on) = 0;
  // A new object that the caller owns; it is written only where it is contained or passed.
  virtual RepositoryMetadataObject* createMetadataObject(const QvbString& objectType) = 0;

protected:
  ~RepositorySerializationContext() = default;
};

extern "C" {

// New ones that the caller releases.
QVREPOSRES_API RepositoryMetadataObject* createRepositoryMetadataObject(const char* objectType);
QVREPOSRES_API RepositorySerializationContext* createRepositoryMetadataSerializationContext();
}
