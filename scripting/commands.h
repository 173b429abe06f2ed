#pragma once

#include <QMetaType>

namespace scripting {

// The numbers of the built-in commands. Quick actions and menu bindings store them as
// text, so a number once given stays.
enum class commands : qint64 {
    // The interpreter's own.
    null_command = 0,
    alias_definition = 1,
    help_query = 2,
    variable_assignment = 3,

    add_device = 4,
    add_task = 5,
    aliases = 6,
    apply_pack = 7,
    assign_addresses = 8,
    attach_event = 9,
    caps = 10,
    change_device_ip = 11,
    change_port = 12, // action menu only
    change_transfer_policy = 13, // action menu only
    check_devices = 14,
    clear = 15,
    clear_devices = 16,
    clear_log = 17,
    console_mono_font = 18,
    delete_variable = 19,
    describe_pack = 20,
    detach_event = 21,
    disable_client = 22,
    display_columns = 23,
    download_file = 24,
    dump_task = 25,
    echo = 26,
    enable_client = 27,
    exit = 28,
    export_devices = 29,
    fix_devices = 30,
    import_configuration = 31, // action menu only
    import_devices = 32,
    limit_tasks = 33,
    list_attached_events = 34,
    list_packs = 35,
    list_plugins = 36,
    list_tasks = 37,
    log = 38,
    log_filters = 39,
    macro_delete = 40,
    macro_list = 41,
    macro_record = 42,
    macro_run = 43,
    macro_show = 44,
    macro_stop = 45,
    network_get = 46,
    network_post = 47,
    notify_beep = 48,
    notify_sound = 49,
    play_video = 50,
    plugin_load = 51,
    plugin_unload = 52,
    print = 53,
    reboot_device = 54,
    register_devices = 55,
    remove_alias = 56,
    reset_columns = 57,
    reset_device_configuration = 58,
    run_lua_script = 59,
    run_task = 60,
    runline_lua_script = 61,
    scan_devices = 62,
    set_language = 63, // action menu only
    set_dhcp = 64, // action menu only
    set_log_filters = 65,
    change_subnet = 66, // action menu only
    settings_get = 67,
    settings_set = 68,
    sleep = 69,
    stop = 70,
    toggle_log_display = 71,
    toggle_menu = 72,
    toolbar = 73,
    url_contents = 74,
    vars = 75,
    version = 76,
    view_image = 77,
    export_report = 78,
};

// The language of a console line.
enum class script_type { ovscript = 0, lua = 1 };

} // namespace scripting

Q_DECLARE_METATYPE(scripting::commands)
