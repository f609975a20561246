#pragma once

#include "osg/node.h"

namespace osg {

/// Just its children.
class OSG_API Group : public ContainerClass<"Group", Group, NodeCore> {
 public:
  static constexpr UInt32 kNextFieldId = NodeCore::kNextFieldId;

 protected:
  friend ContainerClass<"Group", Group, NodeCore>;
  Group() = default;
  Group(const Group&) = default;
  ~Group() override = default;
};
using GroupPtr = FCPtr<Group>;
using GroupBase = Group;

/// Places its children by a matrix.
class OSG_API Transform : public ContainerClass<"Transform", Transform, Group> {
 public:
  static constexpr UInt32 kMatrixFieldId = Group::kNextFieldId;
  static constexpr UInt32 kNextFieldId = kMatrixFieldId + 1;
  static constexpr FieldMask MatrixFieldMask = FieldMask{1} << kMatrixFieldId;

  const TransformationMatrix<Real32>& getMatrix() const { return matrix_; }
  void setMatrix(const TransformationMatrix<Real32>& matrix);
  const TransformationMatrix<Real32>* getLocalMatrix() const override { return &matrix_; }

 protected:
  friend ContainerClass<"Transform", Transform, Group>;
  Transform() = default;
  Transform(const Transform&) = default;
  ~Transform() override = default;

 private:
  TransformationMatrix<Real32> matrix_;
};
using TransformPtr = FCPtr<Transform>;
using TransformBase = Transform;

/// A transform of its own type.
class OSG_API ComponentTransform
    : public ContainerClass<"ComponentTransform", ComponentTransform, Transform> {
 protected:
  friend ContainerClass<"ComponentTransform", ComponentTransform, Transform>;
  ComponentTransform() = default;
  ComponentTransform(const ComponentTransform&) = default;
  ~ComponentTransform() override = default;
};
using ComponentTransformPtr = FCPtr<ComponentTransform>;

class Material;

/// Draws the geometry below it with one material.
class OSG_API MaterialGroup : public ContainerClass<"MaterialGroup", MaterialGroup, Group> {
 public:
  static constexpr UInt32 kMaterialFieldId = Group::kNextFieldId;
  static constexpr FieldMask MaterialFieldMask = FieldMask{1} << kMaterialFieldId;

  const FCPtr<Material>& getMaterial() const { return material_; }
  void setMaterial(const FCPtr<Material>& material) { material_ = material; }

 protected:
  friend ContainerClass<"MaterialGroup", MaterialGroup, Group>;
  MaterialGroup() = default;
  MaterialGroup(const MaterialGroup&) = default;
  ~MaterialGroup() override = default;

 private:
  FCPtr<Material> material_;
};
using MaterialGroupPtr = FCPtr<MaterialGroup>;

/// Draws one of its children, or none.
class OSG_API Switch : public ContainerClass<"Switch", Switch, Group> {
 public:
  static constexpr UInt32 kChoiceFieldId = Group::kNextFieldId;
  static constexpr FieldMask ChoiceFieldMask = FieldMask{1} << kChoiceFieldId;

  /// Index of the chosen child; negative, as in a new Switch, or past the last child: none.
  Int32 getChoice() const { return choice_; }
  void setChoice(Int32 choice) { choice_ = choice; }

 protected:
  friend ContainerClass<"Switch", Switch, Group>;
  Switch() = default;
  Switch(const Switch&) = default;
  ~Switch() override = default;

 private:
  Int32 choice_ = -1;
};
using SwitchPtr = FCPtr<Switch>;

/// Draws one child by the distance of the viewer; rays meet the first, the finest.
class OSG_API DistanceLOD : public ContainerClass<"DistanceLOD", DistanceLOD, Group> {
 public:
  static constexpr UInt32 kCenterFieldId = Group::kNextFieldId;
  static constexpr UInt32 kRangeFieldId = kCenterFieldId + 1;

  /// What the distance is measured from, in the core's space.
  const Point<Real32, 3>& getCenter() const { return center_; }
  void setCenter(const Point<Real32, 3>& center) { center_ = center; }
  /// Child i is drawn nearer than entry i, the last child beyond them all.
  MField<Real32>& getRange() { return range_; }
  const MField<Real32>& getRange() const { return range_; }

 protected:
  friend ContainerClass<"DistanceLOD", DistanceLOD, Group>;
  DistanceLOD() = default;
  DistanceLOD(const DistanceLOD&) = default;
  ~DistanceLOD() override = default;

 private:
  Point<Real32, 3> center_;
  MField<Real32> range_;
};
using DistanceLODPtr = FCPtr<DistanceLOD>;

}  // namespace osg
