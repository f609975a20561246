#include "bench/collision_peer.h"

#ifdef MORLU_BENCH_FCL
#include <fcl/geometry/bvh/BVH_model.h>
#include <fcl/math/bv/OBBRSS.h>
#include <fcl/narrowphase/collision.h>

namespace morlu::bench {

namespace {

class fcl_peer : public collision_peer {
 public:
  std::string name() const override { return "FCL, OBBRSS"; }

  std::size_t add_mesh(const mesh& from) override {
    std::vector<fcl::Vector3f> points;
    points.reserve(from.points.size());
    for (const vector3& p : from.points) points.emplace_back(p[0], p[1], p[2]);
    std::vector<fcl::Triangle> faces;
    faces.reserve(from.faces.size());
    for (const auto& [a, b, c] : from.faces) faces.emplace_back(a, b, c);
    auto model = std::make_unique<fcl::BVHModel<fcl::OBBRSSf>>();
    model->beginModel(static_cast<int>(faces.size()), static_cast<int>(points.size()));
    model->addSubModel(points, faces);
    model->endModel();
    models_.push_back(std::move(model));
    return models_.size() - 1;
  }

  void drop_meshes() override { models_.clear(); }

  std::size_t add_pose(const ::osg::Matrix& world) override {
    fcl::Transform3f pose = fcl::Transform3f::Identity();
    for (int column = 0; column < 4; ++column)
      for (int row = 0; row < 3; ++row)
        pose.matrix()(row, column) = world.getValues()[4 * column + row];
    poses_.push_back(pose);
    return poses_.size() - 1;
  }

  bool collide(std::size_t mesh_a, std::size_t pose_a, std::size_t mesh_b,
               std::size_t pose_b) const override {
    const fcl::CollisionRequestf first_contact(1, true);
    fcl::CollisionResultf result;
    return fcl::collide(models_[mesh_a].get(), poses_[pose_a], models_[mesh_b].get(),
                        poses_[pose_b], first_contact, result) > 0;
  }

 private:
  std::vector<std::unique_ptr<fcl::BVHModel<fcl::OBBRSSf>>> models_;
  std::vector<fcl::Transform3f, Eigen::aligned_allocator<fcl::Transform3f>> poses_;
};

}  // namespace

std::unique_ptr<collision_peer> collision_peer::make() {
  return std::make_unique<fcl_peer>();
}

}  // namespace morlu::bench

#else

namespace morlu::bench {

std::unique_ptr<collision_peer> collision_peer::make() {
  return nullptr;
}

}  // namespace morlu::bench

#endif
