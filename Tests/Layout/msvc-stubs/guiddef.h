#pragma once

struct GUID
{
    unsigned char bytes[16];
};
