#pragma once

// Registers the icon and artwork resources compiled into the static resources library.
// The widgets call it themselves, so a test or a program that builds them needs nothing else.
void init_ui_resources();
