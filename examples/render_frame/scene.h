#pragma once

#include <vector>

#include "examples/render_frame/vec.h"

namespace render_frame {

// What happens to light at a surface. `roughness` widens the mirror direction of kMetal (0 is polished).
struct Material {
    enum Kind { kDiffuse, kCoated, kMetal, kGlass, kLamp };

    Kind kind = kDiffuse;
    Vec3 color;  // albedo, mirror colour or tint, each 0 to 1; radiance of a lamp
    float roughness = 0;
};

// A sphere that moves by `velocity` in the time of one frame; `center` is where it is at time 0.
struct Sphere {
    const char* name;
    Vec3 center;
    float radius;
    Material material;
    Vec3 velocity;

    Vec3 centerAt(float time) const { return center + velocity * time; }
};

// A half line with unit direction, at one moment of the frame (0 is the middle of the shutter).
struct Ray {
    Vec3 origin, direction;
    float time = 0;
};

// The nearest surface along a ray. Object 0 means that there is none, and nothing else is set.
struct Hit {
    int object = 0;
    float distance = 0;
    Vec3 position;
    Vec3 normal;  // unit, away from the inside of the object
    Material material;
};

// A thin-lens camera. `x` points to the right of the picture, `y` up, `z` back towards the viewer.
struct Camera {
    Vec3 position;
    Vec3 x, y, z;
    float fov;            // vertical angle of view, radians
    float focusDistance;  // what is that far away is sharp
    float lensRadius;
};

// A far light that fills a small cone: towards its middle, cosine of half its angle, irradiance of a
// surface that faces it.
struct Sun {
    Vec3 direction;
    float cosAngle;
    Vec3 irradiance;
};

// Everything that is rendered: spheres over an endless checkered ground (y = 0) under a sky with a sun.
// Objects are numbered from 1: the ground, then the spheres in order. Nothing changes a scene while it is
// rendered, so any number of threads may share one.
class Scene {
  public:
    static constexpr int kGround = 1;
    static constexpr float kFar = 2000;       // the ground ends here, long lost in the haze
    static constexpr float kHazeRange = 160;  // after which the haze leaves 1/e of the light

    // The picture that the program shows, as the camera sees it in `frame`: it goes around the middle in
    // kFramesAround frames, from where frame 1 has it.
    static Scene demo(int frame = 1);
    static constexpr int kFramesAround = 240;

    Hit intersect(const Ray& ray) const;

    // What is left of the light that comes from `distance` along `ray`: none behind an object, a tint behind
    // glass.
    Vec3 transmittance(const Ray& ray, float distance) const;

    // Radiance of the sky, the sun itself left out.
    Vec3 sky(Vec3 direction) const;

    // How much of the light of something `distance` away survives the haze, 0 to 1.
    float clarity(float distance) const;
    Vec3 hazeColor() const;

    const char* objectName(int object) const;
    int objectCount() const { return static_cast<int>(spheres.size()) + 1; }
    // How far the object moves in the time of one frame.
    Vec3 velocity(int object) const;

    Camera camera;
    Sun sun;
    std::vector<Sphere> spheres;
    std::vector<int> lamps;  // indices into `spheres`
};

}  // namespace render_frame
