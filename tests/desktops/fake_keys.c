/* kb-fake-keys: presses keys on KWin as a keyboard would, through KWin's fake input protocol
 * (the compositor's own input path, where its global shortcuts are caught; key events sent
 * into XWayland never reach it). Needs KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 in KWin's
 * environment.
 *   kb-fake-keys <evdev key code>...   presses them in order, releases in reverse order */
#include "fake-input-client-protocol.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wayland-client.h>

static struct org_kde_kwin_fake_input *fake_input;

static void global_added(void *data, struct wl_registry *registry, uint32_t name, const char *interface,
                         uint32_t version)
{
    (void)data;
    if (strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        fake_input = wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4);
}

static void global_removed(void *data, struct wl_registry *registry, uint32_t name)
{
    (void)data;
    (void)registry;
    (void)name;
}

static const struct wl_registry_listener listener = {global_added, global_removed};

int main(int argc, char **argv)
{
    struct wl_display *display = wl_display_connect(NULL);
    if (!display) {
        fprintf(stderr, "kb-fake-keys: no Wayland display\n");
        return 1;
    }
    struct wl_registry *registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &listener, NULL);
    wl_display_roundtrip(display);
    if (!fake_input) {
        fprintf(stderr, "kb-fake-keys: the compositor offers no fake input (version 4)\n");
        return 1;
    }
    org_kde_kwin_fake_input_authenticate(fake_input, "Ketterbloom tests", "pressing global shortcuts");
    for (int i = 1; i < argc; ++i)
        org_kde_kwin_fake_input_keyboard_key(fake_input, (uint32_t)atoi(argv[i]), 1);
    for (int i = argc - 1; i >= 1; --i)
        org_kde_kwin_fake_input_keyboard_key(fake_input, (uint32_t)atoi(argv[i]), 0);
    wl_display_roundtrip(display);
    org_kde_kwin_fake_input_destroy(fake_input);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return 0;
}
