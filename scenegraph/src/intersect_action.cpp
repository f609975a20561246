#include "osg/intersect_action.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "osg/cores.h"
#include "osg/geometry.h"

namespace osg {

// --- The table of enter functions ----------------------------------------------------------------

/// Functions by type id. Never changed once published: a registration publishes a new one, and a
/// walk that still uses the old one keeps it alive.
struct IntersectAction::EnterTable {
  std::unordered_map<UInt32, Functor> functors;

  /// The type's own function or that of its nearest ancestor with one; null if there is none.
  const Functor* find(const FieldContainerType& type) const {
    for (const TypeBase* one = &type; one; one = one->getParent()) {
      const auto known = functors.find(one->getId());
      if (known != functors.end()) return &known->second;
    }
    return nullptr;
  }

  /// The table of the process.
  struct __attribute__((visibility("hidden"))) Published {
    std::mutex mutex;
    std::shared_ptr<const EnterTable> table;
    std::atomic<UInt64> version{1};  // of `table`; read without the mutex to see if it is current

    static Published& the() {
      static auto* published = new Published;
      return *published;
    }

   private:
    Published() {
      auto first = std::make_shared<EnterTable>();
      first->functors[Geometry::getClassType().getId()] = makeMethodFunctor(&Geometry::intersect);
      table = first;
    }
  };
};

void IntersectAction::registerEnterDefault(const FieldContainerType& type, Functor functor) {
  auto& published = EnterTable::Published::the();
  auto next = std::make_shared<EnterTable>();
  std::shared_ptr<const EnterTable> old;  // freed after the lock
  const std::lock_guard lock(published.mutex);
  next->functors = published.table->functors;
  if (functor)
    next->functors[type.getId()] = std::move(functor);
  else
    next->functors.erase(type.getId());
  old = std::exchange(published.table, std::move(next));
  published.version.fetch_add(1, std::memory_order_release);
}

const IntersectAction::Rule& IntersectAction::rule_of(const FieldContainerType& type) {
  auto& published = EnterTable::Published::the();
  if (table_version_ != published.version.load(std::memory_order_acquire)) {
    const std::lock_guard lock(published.mutex);
    table_ = published.table;
    table_version_ = published.version.load(std::memory_order_relaxed);
    rules_.clear();
  }
  if (type.getId() >= rules_.size()) rules_.resize(type.getId() + 1);
  Rule& rule = rules_[type.getId()];
  if (!rule.known) {
    rule.known = true;
    rule.enter = table_->find(type);
    if (type.isDerivedFrom(Switch::getClassType())) rule.children = Children::Chosen;
    if (type.isDerivedFrom(DistanceLOD::getClassType())) rule.children = Children::First;
  }
  return rule;
}

// --- The walk ------------------------------------------------------------------------------------

IntersectAction::~IntersectAction() = default;

void IntersectAction::apply(const NodePtr& start) {
  hit_ = Hit();
  if (!start) return;
  const NodePtr held = start;  // the caller's handle may go while functions run
  struct Reset {
    IntersectAction& action;
    ~Reset() { action.reset_walk(); }
  } const reset{*this};
  spaces_.push_back({Matrix4d(), line_});
  // The entered nodes stand in a list of their own: no depth of the graph can exhaust the stack.
  visit(*held);
  while (!frames_.empty()) {
    Frame& frame = frames_.back();
    if (frame.next_child < std::min(frame.end_child, frame.node->getNChildren()))
      visit(*frame.node->getChild(frame.next_child++));
    else
      leave();
  }
}

void IntersectAction::reset_walk() {
  frames_.clear();
  spaces_.clear();
  setActNode(nullptr);
}

void IntersectAction::visit(Node& node) {
  if (node.getTravMask() == 0) return;
  Frame frame{&node, 0, node.getNChildren(), false};
  if (const NodeCorePtr& core = node.getCore()) {
    if (const Matrix* matrix = core->getLocalMatrix()) {
      if (!enter_space(*matrix)) return;
      frame.has_space = true;
    }
    const auto [known, children, enter] = rule_of(core->getType());
    if (children == Children::First) {
      frame.end_child = std::min(frame.end_child, 1u);
    } else if (children == Children::Chosen) {
      const Int32 choice = static_cast<const Switch&>(*core).getChoice();
      const bool none = choice < 0 || static_cast<UInt32>(choice) >= frame.end_child;
      frame.next_child = none ? frame.end_child : static_cast<UInt32>(choice);
      frame.end_child = none ? frame.end_child : frame.next_child + 1;
    }
    if (enter && call(*enter, node) == Skip) frame.end_child = 0;
  }
  frames_.push_back(frame);
}

void IntersectAction::leave() {
  if (frames_.back().has_space) spaces_.pop_back();
  frames_.pop_back();
}

Action::ResultE IntersectAction::call(const Functor& enter, Node& node) {
  setActNode(&node);
  CNodePtr core = node.getCore();
  return enter(core, this);
}

// --- Spaces --------------------------------------------------------------------------------------

namespace {

constexpr Real64 largest_float = std::numeric_limits<Real32>::max();

/// The nearest float; beyond their range the largest one, as NaN never comes here.
Real32 narrow(Real64 value) {
  return static_cast<Real32>(std::clamp(value, -largest_float, largest_float));
}

Matrix4d widened(const Matrix& matrix) {
  Matrix4d wide;
  std::copy_n(matrix.getValues(), 16, wide.getValues());
  return wide;
}

template <class Values>
bool are_floats(const Values& values) {
  return std::all_of(values.getValues(), values.getValues() + 3,
                     [](Real64 v) { return std::abs(v) <= largest_float; });
}

/// Undoes `matrix`; nothing where `inverse()` would stand for a matrix that has no inverse.
std::optional<Matrix4d> undone(const Matrix& matrix) {
  constexpr Real64 smallest_determinant = 1e-30;
  const Matrix4d wide = widened(matrix);
  const Real64 determinant = std::abs(wide.determinant());
  if (!(determinant >= smallest_determinant) || std::isinf(determinant)) return std::nullopt;
  return wide.inverse();
}

}  // namespace

/// Each space is computed from the action's own line, in double, so that errors don't add up along
/// the branch.
bool IntersectAction::enter_space(const Matrix& matrix) {
  const std::optional<Matrix4d> inverse = undone(matrix);
  if (!inverse) return false;
  Space space;
  space.object_from_start = *inverse * spaces_.back().object_from_start;
  const Pnt3f& from = line_.getPosition();
  const Vec3f& along = line_.getDirection();
  const Pnt3d position = space.object_from_start.transformPoint(Pnt3d(from[0], from[1], from[2]));
  Vec3d direction = space.object_from_start.transformVector(Vec3d(along[0], along[1], along[2]));
  const Real64 length = direction.length();
  if (length > 0) {
    space.scale = length;
    direction /= length;
  }
  if (!are_floats(position) || !are_floats(direction)) return false;
  space.line = Line(Pnt3f(position[0], position[1], position[2]),
                    Vec3f(direction[0], direction[1], direction[2]));
  spaces_.push_back(space);
  return true;
}

// --- Hits ----------------------------------------------------------------------------------------

void IntersectAction::setHit(Real32 t, const NodePtr& node, Int32 triangle, const Vec3f& normal) {
  if (!node || !(t >= 0) || std::isinf(t)) return;
  const Real64 t_at_start = spaces_.empty() ? t : t / spaces_.back().scale;
  if (didHit() && !(t_at_start < hit_.t)) return;
  hit_ = {t_at_start, node, triangle, normal_at_start(normal)};
}

/// A plane n * x = c of object space with x = A s is (n A) * s = c' at the start.
Vec3f IntersectAction::normal_at_start(const Vec3f& normal) const {
  if (spaces_.size() < 2) return normal;
  const Matrix4d& a = spaces_.back().object_from_start;
  Vec3d sum;
  for (UInt32 column = 0; column < 3; ++column)
    for (UInt32 row = 0; row < 3; ++row) sum[column] += normal[row] * a[4 * column + row];
  const Real64 length = sum.length();
  if (!(length > 0) || std::isinf(length)) return normal;
  return Vec3f(sum[0] / length, sum[1] / length, sum[2] / length);
}

Real32 IntersectAction::getHitT() const {
  return didHit() ? narrow(hit_.t) : std::numeric_limits<Real32>::max();
}

Pnt3f IntersectAction::getHitPoint() const {
  if (!didHit()) return line_.getPosition();
  Pnt3f point;
  for (UInt32 i = 0; i < 3; ++i)
    point[i] = narrow(line_.getPosition()[i] + hit_.t * line_.getDirection()[i]);
  return point;
}

}  // namespace osg
