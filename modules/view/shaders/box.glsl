// Boxes of procedural geometries as the vertex shaders read them: one 32-byte
// record each (AabbData), drawn as 36 vertices from its corners.

layout(buffer_reference, scalar, buffer_reference_align = 8) readonly buffer Boxes { vec3 minimum; vec3 maximum; uint64_t data; };

// The corners of a unit box (bit 0 x, bit 1 y, bit 2 z), two triangles a face,
// counter-clockwise from outside.
const uint boxCorners[36] = uint[](0, 2, 3, 0, 3, 1,  4, 5, 7, 4, 7, 6,  0, 1, 5, 0, 5, 4,
                                   2, 6, 7, 2, 7, 3,  0, 4, 6, 0, 6, 2,  1, 3, 7, 1, 7, 5);

// Vertex `vertex` of the boxes at address boxes, in object space.
vec3 BoxVertex(uint64_t boxes, uint vertex)
{
    Boxes box = Boxes(boxes + uint64_t(vertex / 36u) * 32ul);
    uint corner = boxCorners[vertex % 36u];
    return mix(box.minimum, box.maximum, vec3(corner & 1u, (corner >> 1) & 1u, (corner >> 2) & 1u));
}
