// What the KivLUTSetting libraries export. They are built with hidden visibility, so a name their
// public headers do not mark with KIVLUT_API stays inside the library that defines it.
#pragma once

#define KIVLUT_API __attribute__((visibility("default")))
