// Handles, types, fields and attachments: what keeps objects alive, in which order they come, and
// what a foreign attachment type can rely on.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <unordered_set>

#include "osg/cores.h"
#include "osg/geometry.h"
#include "osg/remote_aspect.h"
#include "support/run_threads.h"
#include "support/scene_parts.h"

namespace {

/// A payload whose life can be watched from outside.
struct Payload {
  std::shared_ptr<int> tree = std::make_shared<int>(0);
};

}  // namespace

namespace osg {
template <>
struct FieldDataTraits<Payload> {
  static const char* getName() { return "TestPayload"; }
  static const char* getSingleName() { return "SFTestPayload"; }
  static const char* getMultiName() { return "MFTestPayload"; }
  static const char* getParentName() { return "Field"; }
  static Payload getDefault() { return {}; }
  static UInt64 getBinSize(const Payload&) { return 0; }
  static void putToString(const Payload&, std::string& out) { out += "\"\""; }
};
}  // namespace osg

namespace {

struct PayloadDesc {
  using Payload = ::Payload;
  static const char* getTypeName() { return "TestAttachment"; }
  static const char* getParentTypeName() { return "Attachment"; }
  static const char* getGroupName() { return "testattachment"; }
  static osg::FieldContainerType::InitMethod getInitMethod() { return nullptr; }
  static osg::FieldDescription** getDesc() { return desc; }
  static osg::FieldDescription* desc[1];
};
using TestAttachment = osg::SimpleAttachment<PayloadDesc>;

osg::FieldDescription payload_description(TestAttachment::PayloadField::getClassType(), "payload",
                                          3, 8, false, &TestAttachment::accessField);
osg::FieldDescription* PayloadDesc::desc[1] = {&payload_description};

/// An application's own geometry class.
class CurvedGeometry : public osg::ContainerClass<"CurvedGeometry", CurvedGeometry, osg::Geometry> {
};

TEST(Handle, CountsAndConverts) {
  osg::NodePtr node = osg::Node::create();
  EXPECT_EQ(node->getReferenceCount(), 1u);
  osg::AttachmentContainerPtr base = node;
  EXPECT_EQ(node->getReferenceCount(), 2u);
  EXPECT_EQ(osg::Node::dcast(base), node);
  EXPECT_EQ(osg::Geometry::dcast(base), osg::NullFC);

  osg::addRefCP(node);
  const auto* object = node.get();
  node = osg::NullFC;
  base = osg::NullFC;
  EXPECT_EQ(object->getReferenceCount(), 1u);  // the hand-made count alone keeps it
  osg::NodePtr again(const_cast<osg::Node*>(object));
  osg::subRefCP(again);
  EXPECT_EQ(again->getReferenceCount(), 1u);

  osg::subRefCP(osg::NodePtr());
  osg::endEditCP(osg::NodePtr());
  osg::NodePtr self = again;
  self = *&self;
  EXPECT_EQ(again->getReferenceCount(), 2u);
}

TEST(Handle, OrdersByCreationNullFirst) {
  std::map<osg::NodeCorePtr, int> order;
  osg::NodeCorePtr cores[3] = {osg::Group::create(), osg::Geometry::create(), osg::Group::create()};
  for (int i = 2; i >= 0; --i) order[cores[i]] = i;
  order[osg::NullFC] = -1;
  int expected = -1;
  for (const auto& [core, number] : order) EXPECT_EQ(number, expected++);

  const osg::UInt64 serial = cores[1]->getSerial();
  cores[1] = osg::NullFC;
  order.clear();
  for (int i = 0; i < 100; ++i) EXPECT_GT(osg::Geometry::create()->getSerial(), serial);
  std::unordered_set<osg::NodeCorePtr> hashed{cores[0], cores[0], cores[2], osg::NullFC};
  EXPECT_EQ(hashed.size(), 3u);
}

TEST(Type, TellsExactFromDerived) {
  const osg::GeometryPtr curved = CurvedGeometry::create();
  EXPECT_FALSE(curved->getType() == osg::Geometry::getClassType());
  EXPECT_TRUE(curved->getType().isDerivedFrom(osg::Geometry::getClassType()));
  EXPECT_FALSE(curved->getType().isDerivedFrom(osg::Group::getClassType()));
  EXPECT_STREQ(curved->getType().getCName(), "CurvedGeometry");
  EXPECT_TRUE(osg::ComponentTransform::getClassType().isDerivedFrom(osg::Group::getClassType()));
  EXPECT_EQ(osg::TypeBase::find("Geometry"), &osg::Geometry::getClassType());
  EXPECT_EQ(osg::TypeBase::find("NoSuchType"), nullptr);
  EXPECT_NE(osg::Geometry::getClassType().getId(), osg::Group::getClassType().getId());

  const auto copy = CurvedGeometry::getClassType().createContainer();
  EXPECT_TRUE(copy->getType() == CurvedGeometry::getClassType());
  EXPECT_NE(copy, CurvedGeometry::getClassType().getPrototype());
  EXPECT_TRUE(osg::NodeCore::getClassType().createContainer().isNull());
}

TEST(Attachment, AFreshOneSharesThePrototypesPayload) {
  const auto one = TestAttachment::create();
  const auto two = TestAttachment::create();
  EXPECT_EQ(one->getField().getValue().tree, two->getField().getValue().tree);
  two->getField().setValue(Payload());
  EXPECT_NE(one->getField().getValue().tree, two->getField().getValue().tree);

  one->executeSync(*two, 4);
  EXPECT_NE(one->getField().getValue().tree, two->getField().getValue().tree);
  one->executeSync(*two, 8);
  EXPECT_EQ(one->getField().getValue().tree, two->getField().getValue().tree);

  const auto& description = *TestAttachment::getClassType().getDescriptions().at(0);
  EXPECT_EQ(description.access(*one), &one->getField());
  EXPECT_EQ(TestAttachment::getClassType().getDescriptions().size(), 1u);
  EXPECT_EQ(TestAttachment::kPayloadFieldMask, 8u);
}

TEST(Attachment, ATakenBindingReplacesAndReleases) {
  const auto group = osg::Group::create();
  auto attachment = TestAttachment::create();
  attachment->getField().setValue(Payload());
  const std::weak_ptr<int> first = attachment->getField().getValue().tree;
  group->addAttachment(attachment, 0);
  group->addAttachment(TestAttachment::create(), 3);
  attachment = TestAttachment::create();
  EXPECT_FALSE(first.expired());
  group->addAttachment(attachment, 0);
  EXPECT_TRUE(first.expired());
  EXPECT_EQ(group->findAttachment(TestAttachment::getClassType()), attachment);
  EXPECT_FALSE(group->findAttachment(TestAttachment::getClassType(), 3).isNull());
  EXPECT_TRUE(group->findAttachment(TestAttachment::getClassType(), 1).isNull());
  EXPECT_TRUE(group->findAttachment(osg::StringAttributeMap::getClassType()).isNull());
  group->addAttachment(osg::NullFC);
  EXPECT_EQ(group->getAttachments().size(), 2u);
}

TEST(Attachment, NamesAreTheContainersOwn) {
  const auto group = osg::Group::create();
  EXPECT_EQ(osg::getName(group), nullptr);
  osg::setName(group, "");
  EXPECT_STREQ(osg::getName(group), "");
  osg::setName(group, "plant.pump");
  const auto copy = osg::Group::dcast(group->shallowCopy());
  osg::setName(group, osg::getName(group) + 6);  // out of its own old text
  EXPECT_STREQ(osg::getName(group), "pump");
  EXPECT_STREQ(osg::getName(copy), "plant.pump");
  osg::setName(osg::NodePtr(), "nobody");

  copy->setAttachmentField("fileName", "a.png");
  EXPECT_EQ(copy->getAttachmentField("fileName"), "a.png");
  EXPECT_EQ(group->getAttachmentField("fileName"), "");
  EXPECT_STREQ(osg::getName(copy), "plant.pump");
  EXPECT_TRUE(copy->findAttachment(osg::StringAttributeMap::getClassType()).isNull());
}

TEST(Attachment, AttributeMapsKeepTheirOrder) {
  const auto map = osg::StringAttributeMap::create();
  map->setAttribute("zulu", "1");
  map->setAttribute("alpha", "2");
  map->setAttribute("zulu", "3");
  EXPECT_EQ(map->getKeys(), (std::vector<std::string>{"zulu", "alpha"}));
  std::string value = "as before";
  EXPECT_FALSE(map->getAttribute("mike", value));
  EXPECT_EQ(value, "as before");
  EXPECT_TRUE(map->getAttribute("zulu", value));
  EXPECT_EQ(value, "3");
}

/// Writes values between brackets.
struct Brackets : osg::StringConversionState {
  void beginField(const osg::Field&, std::string& out) override { out += '['; }
  void addValue(const std::string& value, std::string& out) override { out += value + ';'; }
  void endField(const osg::Field&, std::string& out) override { out += ']'; }
};

TEST(Field, TextsAndCopies) {
  Brackets brackets;
  std::string all, by_state, second;
  osg::MField<Payload> payloads;
  EXPECT_TRUE(payloads.isEmpty());
  payloads.pushValueByString("ignored");
  payloads.pushValueByString(nullptr);
  payloads.getValuesByString(all);
  payloads.getValuesByState(brackets, by_state);
  payloads.getValueByString(second, 1);
  payloads.getValueByString(second, 2);
  EXPECT_EQ(all, "\"\", \"\"");
  EXPECT_EQ(by_state, "[\"\";\"\";]");
  EXPECT_EQ(second, "\"\"");
  EXPECT_STREQ(payloads.getFieldType().getCName(), "MFTestPayload");
  EXPECT_EQ(payloads.getFieldType().getParentName(), "Field");

  osg::MField<osg::UInt16> numbers;
  for (const char* text : {"7", "not a number", "65535"}) numbers.pushValueByString(text);
  EXPECT_EQ(numbers.getValues(), (std::vector<osg::UInt16>{7, 65535}));
  payloads.setFrom(numbers);  // another type: nothing happens
  EXPECT_EQ(payloads.getSize(), 2u);

  osg::SField<osg::Int32> one(-3), other(5);
  one.setFrom(other);
  EXPECT_EQ(one.getValue(), 5);

  testing::internal::CaptureStdout();
  payloads.dump();
  one.dump();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "STMFST : \n\n");
}

TEST(RemoteAspect, FiltersAddUp) {
  const osg::UInt32 id = TestAttachment::getClassType().getId();
  EXPECT_EQ(osg::RemoteAspect::getFieldFilter(id), 0u);
  osg::RemoteAspect::addFieldFilter(id, osg::AttachmentContainer::AttachmentsFieldMask);
  osg::RemoteAspect::addFieldFilter(id, 4);
  EXPECT_EQ(osg::RemoteAspect::getFieldFilter(id), 6u);
}

TEST(Handle, ThreadsShareObjectsAndMakeTheirOwn) {
  const auto shared = osg::Group::create();
  const int before = static_cast<int>(shared->getReferenceCount());
  std::vector<osg::NodePtr> last(4);
  support::run_threads(4, [&](int thread) {
    for (int i = 0; i < 2000; ++i) {
      const auto node = node_with(shared);
      node->getVolume(true);
      last[static_cast<std::size_t>(thread)] = node;
    }
  });
  EXPECT_EQ(shared->getNumParents(), 4u);
  last.clear();
  EXPECT_EQ(shared->getNumParents(), 0u);
  EXPECT_EQ(static_cast<int>(shared->getReferenceCount()), before);
}

}  // namespace
