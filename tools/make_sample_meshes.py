#!/usr/bin/env python3
"""Writes the sample meshes as glTF 2.0 (JSON with an external .bin): the crate,
the rover, the probe, the monitor and the web screen of modules/sample and the ground of modules/planet.
Game axes: metres, y up, x forward, z to the right. Each primitive has positions, normals,
vertex colours (4 bytes) and 16-bit indices, and a named material; the monitor's screen
also has texture coordinates.

Run from the repository root: python3 tools/make_sample_meshes.py
The files it writes are committed; run it again after changing it."""
import json
import math
import struct
from pathlib import Path


class Primitive:
    def __init__(self, material):
        self.material = material
        self.positions, self.normals, self.colors, self.indices, self.uvs = [], [], [], [], []

    def quad(self, corners, normal, color, uvs=None):
        """Two triangles over four corners given counter-clockwise from the normal's side;
        uvs, when given, are the corners' texture coordinates."""
        base = len(self.positions)
        for i, corner in enumerate(corners):
            self.positions.append(corner)
            self.normals.append(normal)
            self.colors.append(color)
            if uvs:
                self.uvs.append(uvs[i])
        self.indices += [base, base + 1, base + 2, base, base + 2, base + 3]

    def box(self, lo, hi, color, shade=True):
        (x0, y0, z0), (x1, y1, z1) = lo, hi
        faces = [
            ((1, 0, 0), [(x1, y0, z0), (x1, y1, z0), (x1, y1, z1), (x1, y0, z1)]),
            ((-1, 0, 0), [(x0, y0, z0), (x0, y0, z1), (x0, y1, z1), (x0, y1, z0)]),
            ((0, 1, 0), [(x0, y1, z0), (x0, y1, z1), (x1, y1, z1), (x1, y1, z0)]),
            ((0, -1, 0), [(x0, y0, z0), (x1, y0, z0), (x1, y0, z1), (x0, y0, z1)]),
            ((0, 0, 1), [(x0, y0, z1), (x1, y0, z1), (x1, y1, z1), (x0, y1, z1)]),
            ((0, 0, -1), [(x0, y0, z0), (x0, y1, z0), (x1, y1, z0), (x1, y0, z0)]),
        ]
        for i, (normal, corners) in enumerate(faces):
            # A slight difference between faces, as wood boards have.
            k = 1.0 - 0.04 * i if shade else 1.0
            self.quad(corners, normal, tuple(min(255, int(c * k)) for c in color))

    def cylinder(self, radius, half_width, sides, color, hub):
        """A wheel: a cylinder about the z axis, with a darker hub on both faces."""
        ring = [(radius * math.cos(2 * math.pi * i / sides), radius * math.sin(2 * math.pi * i / sides))
                for i in range(sides)]
        for i in range(sides):
            (xa, ya), (xb, yb) = ring[i], ring[(i + 1) % sides]
            mid = 2 * math.pi * (i + 0.5) / sides
            normal = (math.cos(mid), math.sin(mid), 0.0)
            self.quad([(xa, ya, -half_width), (xb, yb, -half_width), (xb, yb, half_width), (xa, ya, half_width)],
                      normal, color)
        for z, normal in ((half_width, (0, 0, 1)), (-half_width, (0, 0, -1))):
            base = len(self.positions)
            self.positions.append((0.0, 0.0, z))
            self.normals.append(normal)
            self.colors.append(hub)
            for x, y in ring:
                self.positions.append((x, y, z))
                self.normals.append(normal)
                self.colors.append(color)
            for i in range(sides):
                a, b = base + 1 + i, base + 1 + (i + 1) % sides
                self.indices += [base, a, b] if z > 0 else [base, b, a]


def write(path, nodes, materials):
    """nodes: list of (name, [Primitive]) or (name, [Primitive], translation); nodes that
    give the same list share one mesh. materials: name -> (baseColor, emission, metallic, roughness)."""
    binary = bytearray()
    accessors, views, meshes, gltf_nodes = [], [], [], []
    names = list(materials)

    def add(data, component, kind, count, target, extra=None):
        while len(binary) % 4:
            binary.append(0)
        views.append({"buffer": 0, "byteOffset": len(binary), "byteLength": len(data), "target": target})
        binary.extend(data)
        accessor = {"bufferView": len(views) - 1, "componentType": component, "count": count, "type": kind}
        accessor.update(extra or {})
        accessors.append(accessor)
        return len(accessors) - 1

    shared = {}
    for node in nodes:
        name, primitives = node[0], node[1]
        gltf_node = {"name": name}
        if len(node) > 2:
            gltf_node["translation"] = list(node[2])
        if id(primitives) in shared:
            gltf_node["mesh"] = shared[id(primitives)]
            gltf_nodes.append(gltf_node)
            continue
        gltf_primitives = []
        for p in primitives:
            assert len(p.positions) <= 65536
            flat = [c for v in p.positions for c in v]
            lo = [min(v[i] for v in p.positions) for i in range(3)]
            hi = [max(v[i] for v in p.positions) for i in range(3)]
            attributes = {
                "POSITION": add(struct.pack(f"<{len(flat)}f", *flat), 5126, "VEC3", len(p.positions), 34962,
                                {"min": lo, "max": hi}),
                "NORMAL": add(struct.pack(f"<{len(flat)}f", *[c for v in p.normals for c in v]), 5126, "VEC3",
                              len(p.normals), 34962),
                "COLOR_0": add(bytes(c for rgb in p.colors for c in (*rgb, 255)), 5121, "VEC4", len(p.colors), 34962,
                               {"normalized": True}),
            }
            if p.uvs:
                assert len(p.uvs) == len(p.positions)
                attributes["TEXCOORD_0"] = add(struct.pack(f"<{2 * len(p.uvs)}f", *[c for uv in p.uvs for c in uv]),
                                               5126, "VEC2", len(p.uvs), 34962)
            indices = add(struct.pack(f"<{len(p.indices)}H", *p.indices), 5123, "SCALAR", len(p.indices), 34963)
            gltf_primitives.append({"attributes": attributes, "indices": indices, "material": names.index(p.material)})
        meshes.append({"name": name, "primitives": gltf_primitives})
        shared[id(primitives)] = len(meshes) - 1
        gltf_node["mesh"] = len(meshes) - 1
        gltf_nodes.append(gltf_node)

    gltf_materials = []
    for name, (color, emission, metallic, roughness) in materials.items():
        gltf_materials.append({"name": name, "emissiveFactor": emission,
                               "pbrMetallicRoughness": {"baseColorFactor": color, "metallicFactor": metallic,
                                                        "roughnessFactor": roughness}})
    bin_name = path.with_suffix(".bin").name
    document = {
        "asset": {"version": "2.0", "generator": "tools/make_sample_meshes.py"},
        "scene": 0, "scenes": [{"nodes": list(range(len(gltf_nodes)))}],
        "nodes": gltf_nodes, "meshes": meshes, "materials": gltf_materials,
        "accessors": accessors, "bufferViews": views,
        "buffers": [{"uri": bin_name, "byteLength": len(binary)}],
    }
    path.write_text(json.dumps(document, indent=1) + "\n")
    path.with_suffix(".bin").write_bytes(bytes(binary))


def crate():
    """A 0.8 m box standing on its base, boards and a label on the front."""
    wood = Primitive("wood")
    wood.box((-0.4, 0.0, -0.4), (0.4, 0.8, 0.4), (255, 255, 255))
    label = Primitive("label")
    label.quad([(0.401, 0.3, -0.2), (0.401, 0.5, -0.2), (0.401, 0.5, 0.2), (0.401, 0.3, 0.2)], (1, 0, 0),
               (255, 255, 255))
    return [("crate", [wood, label])], {
        "wood": ([0.62, 0.42, 0.22, 1.0], [0, 0, 0], 0.0, 0.8),
        "label": ([0.95, 0.92, 0.80, 1.0], [0, 0, 0], 0.0, 0.5),
    }


def rover():
    """The body with its headlight (x forward), and one wheel mesh shared by the four tyres,
    each node at its wheel's axle. The game places the tyres on the wheel joints itself."""
    body = Primitive("paint")
    body.box((-1.0, 0.3, -0.6), (1.0, 0.8, 0.6), (255, 255, 255))
    body.box((-0.5, 0.8, -0.45), (0.3, 1.15, 0.45), (235, 235, 235))  # the cab
    light = Primitive("headlight")
    light.quad([(1.001, 0.6, -0.3), (1.001, 0.7, -0.3), (1.001, 0.7, 0.3), (1.001, 0.6, 0.3)], (1, 0, 0),
               (255, 255, 255))
    tyre = Primitive("tyre")
    tyre.cylinder(0.35, 0.15, 16, (255, 255, 255), (150, 150, 150))
    wheel = [tyre]
    axles = {"fl": (0.75, 0.35, -0.8), "fr": (0.75, 0.35, 0.8), "rl": (-0.75, 0.35, -0.8), "rr": (-0.75, 0.35, 0.8)}
    return [("body", [body, light])] + [("tyre_" + k, wheel, axle) for k, axle in axles.items()], {
        "paint": ([0.85, 0.30, 0.10, 1.0], [0, 0, 0], 0.3, 0.4),
        "headlight": ([1.0, 1.0, 0.9, 1.0], [2.0, 2.0, 1.8], 0.0, 0.2),
        "tyre": ([0.08, 0.08, 0.08, 1.0], [0, 0, 0], 0.0, 0.9),
    }


def probe():
    """A capsule 2.6 m across and 1.6 m tall, with a dark heat shield underneath."""
    hull = Primitive("hull")
    hull.box((-1.3, 0.1, -1.3), (1.3, 1.6, 1.3), (255, 255, 255))
    hull.box((-0.6, 1.6, -0.6), (0.6, 1.9, 0.6), (230, 230, 230))  # the parachute cover
    shield = Primitive("shield")
    shield.box((-1.35, 0.0, -1.35), (1.35, 0.1, 1.35), (255, 255, 255), shade=False)
    return [("probe", [hull, shield])], {
        "hull": ([0.80, 0.80, 0.82, 1.0], [0, 0, 0], 0.8, 0.3),
        "shield": ([0.12, 0.10, 0.09, 1.0], [0, 0, 0], 0.0, 0.9),
    }


def monitor():
    """A screen on a stand, 1.2 m by 0.8 m, facing x; texture coordinates put the image's
    first row at the top and its first column on the viewer's left (+z)."""
    stand = Primitive("stand")
    stand.box((-0.3, 0.0, -0.3), (0.3, 0.05, 0.3), (255, 255, 255))    # the foot
    stand.box((-0.1, 0.05, -0.05), (-0.02, 0.9, 0.05), (255, 255, 255))  # the post
    stand.box((-0.06, 0.86, -0.64), (0.0, 1.74, 0.64), (255, 255, 255))  # the frame
    screen = Primitive("screen")
    screen.quad([(0.001, 1.7, 0.6), (0.001, 0.9, 0.6), (0.001, 0.9, -0.6), (0.001, 1.7, -0.6)], (1, 0, 0),
                (255, 255, 255), [(0, 0), (0, 1), (1, 1), (1, 0)])
    return [("monitor", [stand, screen])], {
        "stand": ([0.15, 0.15, 0.17, 1.0], [0, 0, 0], 0.6, 0.4),
        "screen": ([0.0, 0.0, 0.0, 1.0], [0, 0, 0], 0.0, 0.2),
    }


def webscreen():
    """A wide screen for web pages, 1.8 m by 1.2 m on two posts, facing x; texture
    coordinates as the monitor's."""
    stand = Primitive("stand")
    stand.box((-0.3, 0.0, -0.8), (0.3, 0.05, 0.8), (255, 255, 255))     # the foot
    for z in (-0.55, 0.45):
        stand.box((-0.1, 0.05, z), (-0.02, 0.6, z + 0.1), (255, 255, 255))  # the posts
    stand.box((-0.06, 0.54, -0.96), (0.0, 1.86, 0.96), (255, 255, 255))  # the frame
    screen = Primitive("screen")
    screen.quad([(0.001, 1.8, 0.9), (0.001, 0.6, 0.9), (0.001, 0.6, -0.9), (0.001, 1.8, -0.9)], (1, 0, 0),
                (255, 255, 255), [(0, 0), (0, 1), (1, 1), (1, 0)])
    return [("webscreen", [stand, screen])], {
        "stand": ([0.15, 0.15, 0.17, 1.0], [0, 0, 0], 0.6, 0.4),
        "screen": ([0.0, 0.0, 0.0, 1.0], [0, 0, 0], 0.0, 0.2),
    }


def ground():
    """The sample planet: flat ground in 10 m tiles 400 m across, the basin
    (x 40 to 80, z -20 to 20) 20 m deep, and the water at sea level over it."""
    land = Primitive("ground")
    basin = Primitive("sand")
    for i in range(-20, 20):
        for k in range(-20, 20):
            x0, z0 = i * 10.0, k * 10.0
            x1, z1 = x0 + 10.0, z0 + 10.0
            inside = 40 <= x0 < 80 and -20 <= z0 < 20
            y = -20.0 if inside else 0.0
            shade = 235 if (i + k) % 2 else 255
            (basin if inside else land).quad([(x0, y, z0), (x0, y, z1), (x1, y, z1), (x1, y, z0)], (0, 1, 0),
                                            (shade, shade, shade))
    # The basin's walls, facing inwards.
    basin.quad([(40, -20, -20), (40, 0, -20), (40, 0, 20), (40, -20, 20)], (1, 0, 0), (200, 200, 200))
    basin.quad([(80, -20, -20), (80, -20, 20), (80, 0, 20), (80, 0, -20)], (-1, 0, 0), (200, 200, 200))
    basin.quad([(40, -20, -20), (80, -20, -20), (80, 0, -20), (40, 0, -20)], (0, 0, 1), (200, 200, 200))
    basin.quad([(40, -20, 20), (40, 0, 20), (80, 0, 20), (80, -20, 20)], (0, 0, -1), (200, 200, 200))
    water = Primitive("water")
    water.quad([(40, 0, -20), (40, 0, 20), (80, 0, 20), (80, 0, -20)], (0, 1, 0), (255, 255, 255))
    return [("ground", [land, basin, water])], {
        "ground": ([0.32, 0.52, 0.22, 1.0], [0, 0, 0], 0.0, 0.9),
        "sand": ([0.76, 0.68, 0.48, 1.0], [0, 0, 0], 0.0, 0.9),
        "water": ([0.10, 0.30, 0.55, 1.0], [0, 0, 0], 0.0, 0.1),
    }


if __name__ == "__main__":
    root = Path(__file__).resolve().parent.parent
    write(root / "modules/sample/crate.gltf", *crate())
    write(root / "modules/sample/rover.gltf", *rover())
    write(root / "modules/sample/probe.gltf", *probe())
    write(root / "modules/sample/monitor.gltf", *monitor())
    write(root / "modules/sample/webscreen.gltf", *webscreen())
    write(root / "modules/planet/meshes/ground.gltf", *ground())
    print("wrote the crate, the rover, the probe, the monitor, the web screen and the ground")
