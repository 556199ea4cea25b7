"""Panels of several desktops in a private session: how each is started, light or dark."""

import os

from tests.harness.session import WATCHER
from tests.harness.waiting import wait_for

PANEL_HEIGHT = 32

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


def start_xfce(session, dark=False, size=PANEL_HEIGHT, icon_size=0):
    session.start_panel(dark=dark, size=size, icon_size=icon_size)


def start_lxqt(session, dark=False, size=PANEL_HEIGHT, icon_size=22):
    folder = session.config_home / "lxqt"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "panel.conf").write_text(LXQT_PANEL.format(height=size, icon=icon_size))
    (folder / "lxqt.conf").write_text(
        f"[General]\ntheme={'dark' if dark else 'light'}\nicon_theme=Adwaita\n"
    )
    session.spawn("lxqt-panel", ["lxqt-panel"], {"XDG_CURRENT_DESKTOP": "LXQt"})
    session.wait_for_bus_name(WATCHER)


def start_mate(session, dark=False, size=PANEL_HEIGHT, icon_size=0):
    """The settings go into a key file, since no other store lives in a private session."""
    folder = session.config_home / "glib-2.0" / "settings"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "keyfile").write_text(
        MATE_LAYOUT.format(height=size, theme="Adwaita-dark" if dark else "Adwaita")
    )
    session.environment["GSETTINGS_BACKEND"] = "keyfile"
    session.spawn(
        "mate-panel",
        ["mate-panel"],
        {"XDG_CURRENT_DESKTOP": "MATE", "GTK_THEME": "Adwaita:dark" if dark else "Adwaita"},
    )
    session.wait_for_bus_name(WATCHER)


def start_plasma(session, dark=False, **_):
    """The whole Plasma shell; its default panel lies at the bottom."""
    scheme = "BreezeDark" if dark else "BreezeLight"
    session.config_home.joinpath("kdeglobals").write_text(f"[General]\nColorScheme={scheme}\n")
    session.config_home.joinpath("plasmarc").write_text(
        f"[Theme]\nname={'breeze-dark' if dark else 'breeze-light'}\n"
    )
    session.environment.update(
        {
            "XDG_CURRENT_DESKTOP": "KDE",
            "KDE_FULL_SESSION": "true",
            "KDE_SESSION_VERSION": "5",
            "QT_QUICK_BACKEND": "software",
            "LIBGL_ALWAYS_SOFTWARE": "1",
        }
    )
    session.spawn("kded5", ["kded5"])
    session.spawn("plasmashell", ["plasmashell"])
    session.wait_for_bus_name(WATCHER, timeout=90)


def start_waybar(session, dark=False, size=PANEL_HEIGHT, icon_size=22):
    """Waybar in a sway that has a window of the X server as its screen, so that it is under the
    same pointer and in the same pictures as the others."""
    folder = session.config_home / "waybar"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "config").write_text(WAYBAR.format(height=size, icon=icon_size))
    (folder / "style.css").write_text(
        WAYBAR_STYLE.format(
            background="#222226" if dark else "#f6f5f4", text="#ffffff" if dark else "#2e3436"
        )
    )
    config = session.root / "sway.conf"
    config.write_text(
        "output * resolution 1280x800\n"
        "output * background #446688 solid_color\nxwayland disable\n"
    )
    # As root sway ends at once; in a user namespace it is somebody else.
    somebody = ["unshare", "--user", "--map-user=1000", "--map-group=1000"]
    session.spawn(
        "sway",
        (somebody if os.getuid() == 0 else []) + ["sway", "--unsupported-gpu", "-c", str(config)],
        {"WLR_BACKENDS": "x11", "WLR_RENDERER": "pixman"},
    )
    display = wait_for(
        lambda: next(
            (
                path.name
                for path in session.runtime.glob("wayland-*")
                if not path.name.endswith(".lock")
            ),
            None,
        ),
        "sway",
    )
    session.spawn(
        "waybar",
        ["waybar"],
        {
            "WAYLAND_DISPLAY": display,
            "GDK_BACKEND": "wayland",
            "GTK_THEME": "Adwaita:dark" if dark else "Adwaita",
        },
    )
    session.wait_for_bus_name(WATCHER)
