"""Panels of several desktops in a private session: how each is started, light or dark."""

import os

from tests.harness.session import WATCHER, has
from tests.harness.waiting import wait_for

PANEL_HEIGHT = 32
ICON_SIZE = 22
KDE_VERSION = "6" if has("kded6") else "5"
KDE = {
    "XDG_CURRENT_DESKTOP": "KDE",
    "KDE_FULL_SESSION": "true",
    "KDE_SESSION_VERSION": KDE_VERSION,  # kded leaves its modules out in a session of another
}
PLASMA_SHELL = "org.kde.plasmashell"
# Taking a picture of the default background, a photograph, can last for seconds.
PLAIN_DESKTOP = "desktops().forEach(desktop => desktop.wallpaperPlugin = 'org.kde.color');"
WAYLAND = "wayland-kwin"

LXQT_PANEL = """[General]
panels=panel1
iconTheme=Adwaita

[panel1]
plugins=spacer, statusnotifier
position=Top
panelSize={height}
iconSize={icon}
width=100
width-percent=true
alignment=-1
background-color=@Variant(\\0\\0\\0\\x43\\0\\0\\0\\0\\0\\0\\0\\0\\0\\0)
opacity=100

[spacer]
type=spacer
size=8

[statusnotifier]
type=statusnotifier
alignment=Right
"""

MATE_LAYOUT = """[org/mate/panel/general]
toplevel-id-list=['top']
object-id-list=['tray']

[org/mate/panel/toplevels/top]
orientation='top'
size={height}
expand=true

[org/mate/panel/objects/tray]
object-type='applet'
toplevel-id='top'
applet-iid='NotificationAreaAppletFactory::NotificationArea'
panel-right-stick=true
position=0
locked=true

[org/mate/desktop/interface]
gtk-theme='{theme}'
"""

WAYBAR = """{{
  "layer": "top", "position": "top", "height": {height},
  "modules-right": ["tray"],
  "tray": {{"icon-size": {icon}, "spacing": 10}}
}}
"""
WAYBAR_STYLE = """
* {{ border: none; font-family: sans-serif; font-size: 13px; }}
window#waybar {{ background: {background}; color: {text}; }}
"""
SWAY = """output * resolution 1280x800
output * background #446688 solid_color
xwayland disable
"""


def start_xfce(session, dark=False):
    session.start_panel(dark, PANEL_HEIGHT)


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def as_user(command):
    """For compositors, which refuse to run as root. A user namespace gives them another user id."""
    other_user = ["unshare", "--user", "--map-user=1000", "--map-group=1000"]
    return other_user + command if os.getuid() == 0 else command


def gtk_theme(dark):
    return "Adwaita:dark" if dark else "Adwaita"


def start_lxqt(session, dark=False):
    folder = session.config_home / "lxqt"
    write(folder / "panel.conf", LXQT_PANEL.format(height=PANEL_HEIGHT, icon=ICON_SIZE))
    theme = "dark" if dark else "light"
    write(folder / "lxqt.conf", f"[General]\ntheme={theme}\nicon_theme=Adwaita\n")
    session.spawn("lxqt-panel", ["lxqt-panel"], {"XDG_CURRENT_DESKTOP": "LXQt"})
    session.wait_for_bus_name(WATCHER)


def start_mate(session, dark=False):
    """The settings go into a key file: no other store works in a private session."""
    layout = MATE_LAYOUT.format(height=PANEL_HEIGHT, theme="Adwaita-dark" if dark else "Adwaita")
    write(session.config_home / "glib-2.0" / "settings" / "keyfile", layout)
    session.environment["GSETTINGS_BACKEND"] = "keyfile"
    variables = {"XDG_CURRENT_DESKTOP": "MATE", "GTK_THEME": gtk_theme(dark)}
    session.spawn("mate-panel", ["mate-panel"], variables)
    session.wait_for_bus_name(WATCHER)


def start_plasma(session, dark=False):
    """The whole Plasma shell; its default panel is at the bottom."""
    prepare_plasma(session, dark)
    start_plasma_shell(session, {})


def start_plasma_wayland(session, dark=False):
    """The same as a client of KWin, whose screen is a window of the X server."""
    prepare_plasma(session, dark)
    size = ["--width", "1280", "--height", "800"]
    display = ["--x11-display", session.environment["DISPLAY"], "--socket", WAYLAND]
    session.spawn("kwin", as_user(["kwin_wayland", *size, *display, "--no-lockscreen"]))
    wait_for(lambda: (session.runtime / WAYLAND).exists(), "KWin")
    start_plasma_shell(session, {"WAYLAND_DISPLAY": WAYLAND, "QT_QPA_PLATFORM": "wayland"})


def prepare_plasma(session, dark):
    scheme, theme = ("BreezeDark", "breeze-dark") if dark else ("BreezeLight", "breeze-light")
    write(session.config_home / "kdeglobals", f"[General]\nColorScheme={scheme}\n")
    write(session.config_home / "plasmarc", f"[Theme]\nname={theme}\n")
    session.environment.update(KDE)
    session.environment.update(QT_QUICK_BACKEND="software", LIBGL_ALWAYS_SOFTWARE="1")


def start_plasma_shell(session, variables):
    daemon = f"kded{KDE_VERSION}"
    session.spawn(daemon, [daemon], variables)
    session.spawn("plasmashell", ["plasmashell"], variables)
    session.wait_for_bus_name(WATCHER, timeout=90)
    session.wait_for_bus_name(PLASMA_SHELL, timeout=90)
    script = f"{PLAIN_DESKTOP}\nprint(panels().length);"
    method = "org.kde.PlasmaShell.evaluateScript"
    wait_for(
        lambda: "1" in session.call(PLASMA_SHELL, "/PlasmaShell", method, script, check=False),
        "Plasma's panel",
        timeout=90,
    )


def start_waybar(session, dark=False):
    """Waybar in a sway whose screen is a window of the X server, so that pointer and screenshots
    work as for the other panels."""
    folder = session.config_home / "waybar"
    background, text = ("#222226", "#ffffff") if dark else ("#f6f5f4", "#2e3436")
    write(folder / "config", WAYBAR.format(height=PANEL_HEIGHT, icon=ICON_SIZE))
    write(folder / "style.css", WAYBAR_STYLE.format(background=background, text=text))
    config = session.root / "sway.conf"
    config.write_text(SWAY)
    command = as_user(["sway", "--unsupported-gpu", "-c", str(config)])
    session.spawn("sway", command, {"WLR_BACKENDS": "x11", "WLR_RENDERER": "pixman"})
    socket = wait_for(lambda: list(session.runtime.glob("wayland-?")), "sway")[0]
    variables = {"WAYLAND_DISPLAY": socket.name, "GDK_BACKEND": "wayland"}
    session.spawn("waybar", ["waybar"], {**variables, "GTK_THEME": gtk_theme(dark)})
    session.wait_for_bus_name(WATCHER)
