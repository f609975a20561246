#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "osb/classes.h"
#include "osb/format.h"

namespace osg::osb {

/// What a file says of an attachment; nothing for one that isn't written.
std::optional<AttachmentKind> kind_to_write(const AttachmentContainer::Entry& entry);

/// The attachments of an object; none if it is one itself.
std::span<const AttachmentContainer::Entry> attachments_of(const FieldContainer& object);

/// The objects of a subgraph, each once, behind all that it refers to.
class SceneOrder {
 public:
  struct Entry {
    FieldContainer* object;
    const KnownClass* known;
  };

  /// Throws a `Failure` for graphs that can't be written. O(objects + references) time.
  explicit SceneOrder(const NodePtr& root);

  const std::vector<Entry>& objects() const { return objects_; }
  /// The classes of the objects in the order of first use.
  const std::vector<const KnownClass*>& classes() const { return classes_; }
  /// Place in `objects()`, from 1; 0 for null and for what isn't written.
  UInt32 number_of(const FieldContainer* object) const;
  /// Place in `classes()`.
  UInt16 number_of(const KnownClass& known) const { return class_numbers_[known.number]; }
  std::vector<std::string> warnings() const;

 private:
  /// An object whose references are being followed.
  struct Frame {
    FieldContainer* object;
    const KnownClass* known;
    std::size_t first_reference;  // of its references, which end the list of all
    std::size_t next_reference;
    UInt32 depth;  // of what it refers to, so far
  };

  void open(FieldContainer& object);
  void close();
  void note_depth(UInt32 depth);
  void collect_references(const Frame& frame);
  void warn(const std::string& what) { ++warnings_[what]; }

  std::vector<Entry> objects_;
  std::vector<UInt32> depths_;                                 // of each object
  std::unordered_map<const FieldContainer*, UInt32> numbers_;  // kOpen while in a frame
  std::vector<const KnownClass*> classes_;
  std::vector<UInt16> class_numbers_;
  std::vector<Frame> frames_;
  std::vector<FieldContainer*> references_;
  std::map<std::string, UInt64> warnings_;  // how often
};

}  // namespace osg::osb
