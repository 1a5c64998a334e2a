"""What an import must leave in the destination, worked out from the cards' content alone."""

import copy
import struct
import xml.etree.ElementTree as ET

from . import recordings

_VIDEO = ".MOV"
_PHOTOS = (".DNG", ".JPG")
_ENCODING = {"presets": "4;", "quality": "1;", "profile": "2;", "framerateMode": "0;",
             "vbitrate": "100000000", "abitrate": "160000"}
# What a first run's settings give.
DEFAULT_ANGLES = {camera: {"yaw": "-0", "pitch": "0", "roll": "-90", "offset_x": "-20", "offset_y": "0"}
                  for camera in (1, 2, 3)}
_ANGLES = {"yaw": "Yaw", "pitch": "Pitch", "roll": "Roll", "offset_x": "OffsetX", "offset_y": "OffsetY"}


class Destination:
    """The copies and previews (path, content) and the projects (path, element) of the imports so far."""

    def __init__(self, template=None, picture=None, angles=None):
        """`template` is a template's text; `angles` maps a camera to its attributes, None keeps the template's."""
        self.files = {}
        self.projects = {}
        self.template = ET.fromstring(template) if template else None
        self.picture = picture
        self.angles = angles

    def add_import(self, cards, project=""):
        """One more import of `cards` (number, folder). Returns the cards' summaries."""
        before = set(self.files)
        summaries = []
        for card, folder in cards.items():
            found = recordings_in(recordings.tree(folder))
            for name, data in found.items():
                self._add(card, name, data, project, before)
            videos = sum(name.endswith(_VIDEO) for name in found)
            summaries.append("Copied {0}/{0} videos and {1}/{1} photos.".format(videos, len(found) - videos))
        return summaries

    def _add(self, card, name, data, project, before):
        extension = next(ending for ending in (_VIDEO,) + _PHOTOS if name.endswith(ending))
        stem = name[:-len(extension)]
        named = "_" + project if project else ""
        take = stem
        path = "{}{}_cam{}{}".format(stem, named, card, extension)
        number = 0
        while path in before:
            number += 1
            take = "{}-{}".format(stem, number)
            path = "{}_cam{}{}".format(take, card, extension)
        self.files[path] = data
        if self.template is None:
            return
        cameras = ["{}{}_cam{}{}".format(take.rsplit("/", 1)[-1], named, camera, extension) for camera in (1, 2, 3)]
        if extension == _VIDEO:
            if self.picture is not None:
                self.files[path + ".jpg"] = self.picture
            rendered = take.rsplit("/", 1)[-1] + "_rendered.kava"
            self.projects.setdefault(take + named + "_autopano.kava", self.video_project(cameras, rendered))
        else:
            self.projects.setdefault("{}{}_giga{}.pano".format(take, named, extension), self.photo_project(cameras))

    def video_project(self, cameras, rendered):
        kava = copy.deepcopy(self.template)
        for parent in ("videos", "stabilization", "exposure"):
            for video, camera in zip(kava.findall(parent + "/video"), cameras):
                video.set("file", camera)
                if parent == "videos":
                    video.set("dt", "0")
        self._edit_pano(kava.find("pano"), [camera + ".jpg" for camera in cameras])
        kava.find("output").set("file", rendered)
        kava.find("encodingrules").attrib.update(_ENCODING)
        return kava

    def photo_project(self, cameras):
        pano = copy.deepcopy(self.template.find("pano"))
        self._edit_pano(pano, cameras)
        return pano

    def _edit_pano(self, pano, pictures):
        for number, (image, picture) in enumerate(zip(pano.findall("images/image"), pictures), 1):
            image.find("def").set("filename", picture)
            if self.angles is not None:
                image.find("camera").attrib.update(self.angles[number])
        for tag in ("thumbnail", "match"):
            for parent in list(pano.iter()):
                for child in parent.findall(tag):
                    parent.remove(child)


def angles_of(settings):
    """The angles as the settings (key, text) give them, for Destination."""
    angles = {camera: {attribute: settings["Camera{}{}".format(camera, key)] for attribute, key in _ANGLES.items()}
              for camera in (1, 2, 3)}
    if settings["RadiansAngles"] == "1":
        for camera in angles.values():
            camera.update({name: str(float(camera[name]) * 0.01745329238474369) for name in ("yaw", "pitch", "roll")})
    return angles


def canonical(element):
    """A text that is equal for equal documents: no layout, attributes sorted, angles as single-precision values."""
    element = copy.deepcopy(element)
    for camera in element.iter("camera"):
        for name in _ANGLES:
            if camera.get(name):
                camera.set(name, struct.pack("f", float(camera.get(name))).hex())
    return ET.canonicalize(ET.tostring(element, encoding="unicode"), strip_text=True)


def recordings_in(files):
    """Those of a card's files (path, content) that an import copies."""
    def wanted(name):
        return name.endswith((_VIDEO,) + _PHOTOS) and not any(part.startswith(".") for part in name.split("/"))
    return {name: content for name, content in files.items() if wanted(name)}
