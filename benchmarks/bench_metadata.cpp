// Metadata objects written as XML and read back: a library that refers to its jobs, each with two attributes and a step
// that it contains.
//   build/benchmark/bin/bench_metadata NAME [OBJECTS]
#include "bench.h"

#include "qvreposres/qvreposserialize.h"
#include "qvxbase/qvbreleased.h"

#ifdef QV_WITH_PUGIXML
#include <pugixml.hpp>
#endif

#include <map>
#include <memory>
#include <unordered_map>

namespace {

std::size_t objectsOf(const Bench& run) {
  if (run.isShort)
    return 20;
  return run.words.empty() ? 100'000 : std::stoul(run.words.front());
}

std::string numbered(const char* text, std::size_t number) { return text + std::to_string(number); }

QvbString textOf(const std::string& text) { return QvbString(std::string_view(text)); }

using Context = Released<RepositorySerializationContext>;

Context newContext() { return Context(createRepositoryMetadataSerializationContext()); }

QvbString writeByLibrary(std::size_t objects) {
  const Context context = newContext();
  RepositoryMetadataObject* library = context->getMetadataObject("Library", "L");
  for (std::size_t i = 0; i < objects / 2; ++i) {
    RepositoryMetadataObject* job = context->getMetadataObject("Job", textOf(numbered("J", i)));
    job->addAttribute("name", textOf(numbered("load_", i)));
    job->addAttribute("owner", textOf(numbered("user_", i % 100)));
    RepositoryMetadataObject* step = context->createMetadataObject("Step");
    step->setId(textOf(numbered("S", i)));
    job->addContainedObject(step);
    library->addAssociatedObject("Jobs", job);
  }
  QvbString xml;
  context->serialize(library, &xml, nullptr, true);
  return xml;
}

void byLibrary(Bench& run) {
  QvbString xml;
  std::size_t read = 0;
  run.measure([&] {
    xml = writeByLibrary(objectsOf(run));
    const Context context = newContext();
    RepositoryMetadataObject* library = context->deSerialize(xml, nullptr);
    const Released<RepositoryMetadataObjectList> jobs(library->getAssociatedObjects("Jobs"));
    for (; jobs->next(); ++read)
      if (QvbString name; !jobs->getValue()->getAttribute("name", &name))
        throw std::runtime_error("a job has no name");
  });
  run.result = checksumOf(xml.view()) + ", " + std::to_string(read) + " read";
}

#ifdef QV_WITH_PUGIXML

struct Object {
  std::string type;
  std::string id;
  std::map<std::string, std::string> attributes;
  std::vector<std::unique_ptr<Object>> contained;
  std::map<std::string, std::vector<Object*>> associated;
};
using Objects = std::map<std::string, std::unique_ptr<Object>>;

Object& objectOf(Objects& objects, const std::string& type, const std::string& id) {
  auto& object = objects[id];
  if (!object)
    object = std::make_unique<Object>(Object{type, id, {{"Id", id}}, {}, {}});
  return *object;
}

void write(pugi::xml_node node, const Object& object) {
  for (const auto& [name, value] : object.attributes)
    node.append_attribute(name.c_str()) = value.c_str();
  for (const auto& contained : object.contained)
    write(node.append_child(contained->type.c_str()), *contained);
  for (const auto& [name, associated] : object.associated) {
    pugi::xml_node association = node.append_child(name.c_str());
    for (const Object* other : associated)
      association.append_child(other->type.c_str()).append_attribute("ObjRef") = other->id.c_str();
  }
}

struct Text : pugi::xml_writer {
  void write(const void* data, std::size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
  std::string text;
};

// The closing of an empty element is pugixml's own, with a blank before it.
std::string writeByPugixml(std::size_t count) {
  Objects objects;
  Object& library = objectOf(objects, "Library", "L");
  for (std::size_t i = 0; i < count / 2; ++i) {
    Object& job = objectOf(objects, "Job", numbered("J", i));
    job.attributes["name"] = numbered("load_", i);
    job.attributes["owner"] = numbered("user_", i % 100);
    const std::string id = numbered("S", i);
    job.contained.push_back(std::make_unique<Object>(Object{"Step", id, {{"Id", id}}, {}, {}}));
    library.associated["Jobs"].push_back(&job);
  }
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("morvaxeldocument");
  root.append_attribute("class") = "RepositoryMetadataObject";
  root.append_attribute("version") = "1.0";
  write(root.append_child("Library"), library);
  for (const auto& [id, object] : objects)
    if (object.get() != &library)
      write(root.append_child(object->type.c_str()), *object);
  Text text;
  text.text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  document.save(text, "  ", pugi::format_indent | pugi::format_no_declaration);
  return text.text;
}

// Contained objects belong to the map, too: a reference may come before what it refers to.
Object& read(Objects& objects, const pugi::xml_node& node) {
  const pugi::xml_attribute reference = node.attribute("ObjRef");
  Object& object = objectOf(objects, node.name(), (reference ? reference : node.attribute("Id")).value());
  for (const auto& attribute : node.attributes())
    if (attribute != reference)
      object.attributes[attribute.name()] = attribute.value();
  for (const auto& child : node.children()) {
    if (child.first_attribute())
      read(objects, child);
    else
      for (const auto& associated : child.children())
        object.associated[child.name()].push_back(&read(objects, associated));
  }
  return object;
}

void byPugixml(Bench& run) {
  std::string xml;
  std::size_t jobs = 0;
  run.measure([&] {
    xml = writeByPugixml(objectsOf(run));
    pugi::xml_document document;
    if (!document.load_buffer(xml.data(), xml.size()))
      throw std::runtime_error("pugixml cannot read what it wrote");
    Objects objects;
    for (const auto& node : document.document_element().children())
      read(objects, node);
    for (const Object* job : objects.at("L")->associated.at("Jobs"))
      jobs += job->attributes.contains("name");
  });
  for (std::size_t at = xml.find(" />"); at != std::string::npos; at = xml.find(" />", at))
    xml.erase(at, 1);
  run.result = checksumOf(xml) + ", " + std::to_string(jobs) + " read";
}

#endif

} // namespace

int main(int count, char** words) {
  return bench(count, words,
               {
                   {"library", byLibrary},
#ifdef QV_WITH_PUGIXML
                   {"pugixml", byPugixml},
#endif
               });
}
