#version 450
// One flat colour for every fragment, from a push constant.
layout(push_constant) uniform Colour {
    vec4 colour;
} push;

layout(location = 0) out vec4 fragColour;

void main()
{
    fragColour = push.colour;
}
