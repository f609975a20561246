#include "bench/ray_peer.h"

#ifdef MORLU_BENCH_EMBREE
#include <embree3/rtcore.h>
#include <pmmintrin.h>
#include <xmmintrin.h>

#include <limits>
#include <stdexcept>

namespace morlu::bench {

namespace {

/// Denormals count as zero while it lives, as the peer asks for; our own runs go without.
class flushed_denormals {
 public:
  flushed_denormals() : former_(_mm_getcsr()) {
    _MM_SET_FLUSH_ZERO_MODE(_MM_FLUSH_ZERO_ON);
    _MM_SET_DENORMALS_ZERO_MODE(_MM_DENORMALS_ZERO_ON);
  }
  flushed_denormals(const flushed_denormals&) = delete;
  flushed_denormals& operator=(const flushed_denormals&) = delete;
  ~flushed_denormals() { _mm_setcsr(former_); }

 private:
  unsigned int former_;
};

/// The cheapest test that makes it a peer of ours: hits on back faces don't count.
void accept_front_faces(const RTCFilterFunctionNArguments* filtered) {
  const auto* const ray = reinterpret_cast<const RTCRay*>(filtered->ray);
  const auto* const hit = reinterpret_cast<const RTCHit*>(filtered->hit);
  if (hit->Ng_x * ray->dir_x + hit->Ng_y * ray->dir_y + hit->Ng_z * ray->dir_z > 0)
    filtered->valid[0] = 0;
}

/// A device of one thread with a scene of one mesh. The mesh's own arrays are shared.
class embree_scene {
 public:
  embree_scene() : device_(rtcNewDevice("threads=1")) {
    if (!device_) throw std::runtime_error("no Embree device");
    rtcSetDeviceMemoryMonitorFunction(device_, count_bytes, this);
  }
  embree_scene(const embree_scene&) = delete;
  embree_scene& operator=(const embree_scene&) = delete;
  ~embree_scene() {
    drop();
    rtcReleaseDevice(device_);
  }

  void drop() {
    if (scene_) rtcReleaseScene(scene_);
    scene_ = nullptr;
  }

  void build(const std::shared_ptr<const mesh>& source, peer_quality quality) {
    source_ = source;
    const mesh& of = *source;
    const RTCBuildQuality wanted = quality == peer_quality::low      ? RTC_BUILD_QUALITY_LOW
                                   : quality == peer_quality::medium ? RTC_BUILD_QUALITY_MEDIUM
                                                                     : RTC_BUILD_QUALITY_HIGH;
    scene_ = rtcNewScene(device_);
    rtcSetSceneBuildQuality(scene_, wanted);
    const RTCGeometry triangles = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    rtcSetGeometryBuildQuality(triangles, wanted);
    rtcSetSharedGeometryBuffer(triangles, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                               of.points.data(), 0, sizeof of.points[0], of.points.size());
    rtcSetSharedGeometryBuffer(triangles, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                               of.faces.data(), 0, sizeof of.faces[0], of.faces.size());
    rtcSetGeometryIntersectFilterFunction(triangles, accept_front_faces);
    rtcCommitGeometry(triangles);
    rtcAttachGeometry(scene_, triangles);
    rtcReleaseGeometry(triangles);
    rtcCommitScene(scene_);
    const RTCError error = rtcGetDeviceError(device_);
    if (error != RTC_ERROR_NONE) throw std::runtime_error("Embree refuses the mesh");
  }

  void trace(const std::vector<ray_query>& rays, std::vector<float>& distances) const {
    const flushed_denormals mode;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit shot{};
    for (std::size_t i = 0; i < rays.size(); ++i) {
      shot.ray.org_x = rays[i].origin[0];
      shot.ray.org_y = rays[i].origin[1];
      shot.ray.org_z = rays[i].origin[2];
      shot.ray.dir_x = rays[i].direction[0];
      shot.ray.dir_y = rays[i].direction[1];
      shot.ray.dir_z = rays[i].direction[2];
      shot.ray.tnear = 0;
      shot.ray.tfar = std::numeric_limits<float>::infinity();
      shot.ray.mask = ~0u;
      shot.ray.flags = 0;
      shot.hit.geomID = RTC_INVALID_GEOMETRY_ID;
      shot.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
      rtcIntersect1(scene_, &context, &shot);
      distances[i] = shot.ray.tfar;  // stays infinite without a hit
    }
  }

  double bytes() const { return static_cast<double>(bytes_); }

 private:
  static bool count_bytes(void* self, ssize_t bytes, bool) {
    static_cast<embree_scene*>(self)->bytes_ += bytes;
    return true;
  }

  std::shared_ptr<const mesh> source_;
  RTCDevice device_;
  RTCScene scene_ = nullptr;
  ssize_t bytes_ = 0;
};

std::string peer_name(peer_quality quality) {
  return quality == peer_quality::low      ? "Embree, low quality"
         : quality == peer_quality::medium ? "Embree, medium quality"
                                           : "Embree, high quality";
}

}  // namespace

std::optional<contender> peer_rays(const std::shared_ptr<const mesh>& of, peer_quality quality,
                                   const std::shared_ptr<const std::vector<ray_query>>& rays,
                                   const std::shared_ptr<std::vector<float>>& distances) {
  const auto scene = std::make_shared<embree_scene>();
  scene->build(of, quality);
  return contender{.name = peer_name(quality),
                   .run = [=] { scene->trace(*rays, *distances); },
                   .fault = [] { return std::string(); }};
}

std::optional<peer_building> peer_build(const std::shared_ptr<const mesh>& of,
                                        peer_quality quality) {
  const auto scene = std::make_shared<embree_scene>();
  return peer_building{{.name = peer_name(quality),
                        .prepare = [=] { scene->drop(); },
                        .run = [=] { scene->build(of, quality); }},
                       [=](const std::vector<ray_query>& rays) {
                         std::vector<float> distances(rays.size());
                         scene->trace(rays, distances);
                         return distances;
                       }};
}

std::optional<contender> peer_bytes(const std::shared_ptr<const mesh>& of, peer_quality quality) {
  embree_scene scene;
  const double before = scene.bytes();
  scene.build(of, quality);
  const double bytes = (scene.bytes() - before) / static_cast<double>(of->faces.size());
  return contender{.name = peer_name(quality),
                   .fault = [bytes] { return bytes > 0 ? "" : "it holds nothing"; },
                   .value = [bytes] { return bytes; }};
}

}  // namespace morlu::bench

#else

namespace morlu::bench {

std::optional<contender> peer_rays(const std::shared_ptr<const mesh>&, peer_quality,
                                   const std::shared_ptr<const std::vector<ray_query>>&,
                                   const std::shared_ptr<std::vector<float>>&) {
  return std::nullopt;
}
std::optional<peer_building> peer_build(const std::shared_ptr<const mesh>&, peer_quality) {
  return std::nullopt;
}
std::optional<contender> peer_bytes(const std::shared_ptr<const mesh>&, peer_quality) {
  return std::nullopt;
}

}  // namespace morlu::bench

#endif
