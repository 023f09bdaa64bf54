"""What a manifest has to hold, written down beside the program that makes it."""

from pathlib import Path

# The midlets' texts in English, in their order.
ENGLISH = {
    "Viewlander": """
screen_wait: Please, wait
screen_settings: Settings
screen_tessaron: norvane.example
screen_tessaroncams: Tessaron cameras
alert_camlistload: Loading camera list...
alert_camload: Loading camera...
alert_helpload: Loading help...
alert_videoload: Loading video...
alert_tryreload: Canceled. Connection problem. Please, reload the midlet.
alert_nosignal: No signal
alert_noserver: Server unavailable
alert_ok: OK
alert_nocams: No cameras
alert_cantloadlist: Unable to load the list
menu_cancel: Cancel
menu_ok: OK
menu_exit: Exit
menu_cameras: Cameras
menu_stop: Stop
menu_settings: Settings
menu_zoomin: Closer
menu_zoomout: Farther
menu_fit: Enter
menu_rotate: Rotate
menu_view: View
menu_close: Close
set_imgquality: Image quality
set_high: High
set_normal: Middle
set_low: Low
set_interframefq: Cut-in frame frequency
set_framesize: Zoom
set_desirespeed: Desired speed (fps)\x20
""",
    "Sendora": """
screen_wait: Please, wait
screen_transmittingframes: Transmission (frames)\x20
alert_connectingsrv: Connecting to server...
alert_changingcam: Changing camera...
alert_turningoncam: Turning camera on...
alert_canceled: Canceled
alert_wrongloginpsw: Invalid login/password
alert_nocash: Refill the balance
alert_ok: OK
alert_captureoff: No capture
cmd_cancel: Cancel
cmd_exit: Exit
cmd_transmitting: Transmission
cmd_stop: Stop
cmd_maincam: Main camera
cmd_extcam: Secondary camera
cmd_multishoot: Multi capture
""",
}


def texts(section, file):
    """The texts' lines; those of the other languages come from the files that translators work on."""
    english = [line for line in ENGLISH[section].split("\n") if line]
    if file == "gui.eng.ini":
        return english
    lines, here = [], None
    for line in Path(file).read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            here = line
        elif line and here == f"[{section}]":
            lines.append(line.replace("=", ": ", 1))
    assert [line.split(":")[0] for line in lines] == [line.split(":")[0] for line in english], file
    return lines


def manifest(midlet, jar_name, login, password, server, picture_size, code_page, language_file):
    """The bytes of one. `language_file`: of the texts; without one there are none."""
    lines = [
        "Manifest-Version: 1.0",
        "MicroEdition-Configuration: CLDC-1.0",
        "Created-By: 1.4.2_03 (Sun Microsystems Inc.)",
        "MIDlet-Vendor: Norvane",
        "MIDlet-Version: 6.0",
        "MicroEdition-Profile: MIDP-2.0",
        "logo: /icons/logo_big.png",
        "testJPEG: /icons/test.jpg",
        "RESOURCE: /mobile/video",
    ]
    if jar_name:
        lines.append(f"MIDlet-Name: {jar_name}")
    lines.append(f"MIDlet-1: {jar_name}, /icons/logo_small.png, Quillstart")
    if login:
        lines.append(f"LOGIN: {login}")
    if password:
        lines.append(f"PSW: {password}")
    lines.append(f"SRV: {server}")
    if midlet == "Sendora":
        lines.append(f"FORMAT: {picture_size}")
    else:
        lines.append("CAMLIST: /xslt/enum/all?xslt=cameras.xsl")
        lines.append("RANGES: /xslt/<hash>/ranges?xslt=archives.xsl")
    shown = texts(midlet, language_file) if language_file else []
    return b"".join(line.encode(code_page) + b"\r\n" for line in lines) + b"".join(
        line.encode("utf-8") + b"\r\n" for line in shown)
