#pragma once

#include <memory>
#include <vector>

#include "osg/action.h"
#include "osg/line.h"

namespace osg {

/// Finds what a ray hits first in a graph.
///
/// Nodes are visited depth first, children in order. At each node the function that is registered
/// for its core's class runs and may report hits; `Geometry::intersect` is registered for Geometry
/// from the start. Not entered are nodes with travMask 0, children that a Switch hasn't chosen, all
/// children of a DistanceLOD but the first, and what lies below a Transform that no line can be
/// carried through: one whose determinant is below 1e-30, or which puts the ray beyond the range of
/// floats. A null core just has its children.
///
/// An action may be applied again and again, by one thread at a time and not from its own
/// functions. Several actions may walk one graph side by side. Functions may change attachments on
/// the way, but not the structure of the graph.
class OSG_API IntersectAction : public Action {
 public:
  IntersectAction() = default;
  /// `line` is in the coordinates of the start node's parent.
  explicit IntersectAction(const Line& line) : line_(line) {}
  ~IntersectAction() override;

  /// Registers what to do at cores of `type` and of the types derived from it that have no function
  /// of their own, for all actions of the process. It replaces an earlier one and counts from the
  /// next node on, also in walks under way. An empty functor takes the type's function away. Safe
  /// from any thread; nodes are visited without a lock.
  static void registerEnterDefault(const FieldContainerType& type, Functor functor);

  /// Not while the action is applied.
  void setLine(const Line& line) { line_ = line; }
  /// In a function: the line in the object space of the active node, that is with the node's own
  /// matrix undone, direction of unit length. Otherwise the line of the action.
  const Line& getLine() const { return spaces_.empty() ? line_ : spaces_.back().line; }

  /// Looks for the nearest hit below and at `start`; forgets former ones. Null: no hit.
  void apply(const NodePtr& start);

  /// For functions: reports a hit at distance `t` along `getLine()`, with the normal in the same
  /// space. Of all hits the nearest in the space of the action's line is kept, of equally near ones
  /// the first. A negative, infinite or NaN distance is no hit.
  void setHit(Real32 t, const NodePtr& node, Int32 triangle, const Vec3f& normal);

  bool didHit() const { return !hit_.node.isNull(); }
  /// Distance along the action's line; the largest float without a hit.
  Real32 getHitT() const;
  /// On the action's line, in its space; its position without a hit.
  Pnt3f getHitPoint() const;
  /// In the space of the action's line: as reported where no Transform lies between, otherwise
  /// carried over and scaled to unit length. Zero without a hit.
  const Vec3f& getHitNormal() const { return hit_.normal; }
  /// The number that was reported; -1 without a hit.
  Int32 getHitTriangle() const { return hit_.triangle; }
  /// The node that was reported; null without a hit.
  const NodePtr& getHitObject() const { return hit_.node; }

 private:
  struct EnterTable;
  enum class Children : UInt8 { All, Chosen, First };

  /// What the class of a core asks for.
  struct Rule {
    bool known = false;
    Children children = Children::All;
    const Functor* enter = nullptr;  // in the table that is held
  };
  /// The coordinates below a Transform.
  struct Space {
    Matrix4d object_from_start;
    Line line;
    Real64 scale = 1;  // length here of what has length 1 along the action's line
  };
  /// An entered node, with its children still to come.
  struct Frame {
    const Node* node;
    UInt32 next_child;
    UInt32 end_child;
    bool has_space;  // leaves one when it is left
  };
  struct Hit {
    Real64 t = 0;  // along the action's line
    NodePtr node;
    Int32 triangle = -1;
    Vec3f normal;
  };

  void visit(Node& node);
  void leave();
  void reset_walk();
  bool enter_space(const Matrix& matrix);
  const Rule& rule_of(const FieldContainerType& type);
  ResultE call(const Functor& enter, Node& node);
  Vec3f normal_at_start(const Vec3f& normal) const;

  Line line_;
  Hit hit_;
  std::vector<Space> spaces_;  // the action's own first; empty outside a walk
  std::vector<Frame> frames_;
  std::vector<Rule> rules_;  // by type id, found out on first use
  std::shared_ptr<const EnterTable> table_;
  UInt64 table_version_ = 0;
};

}  // namespace osg
