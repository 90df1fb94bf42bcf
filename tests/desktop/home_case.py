"""What most tests begin with: a home of their own, and in it a sound server and a service that end with the test."""
import unittest

from service import Home, Service
from soundlab import PrivateSound, short_folder


class HomeCase(unittest.TestCase):
    """A home, in which nothing runs yet."""

    def setUp(self):
        folder = short_folder()
        self.addCleanup(folder.cleanup)
        self.home = Home(folder.name)

    def start_sound(self):
        sound = PrivateSound(self.home.path)
        sound.start()
        self.addCleanup(sound.stop)
        return sound

    def start_service(self, *arguments, **options):
        """Begun, but not yet ready."""
        service = Service(self.home, *arguments, **options)
        self.addCleanup(service.stop)
        return service


class SpeakingCase(HomeCase):
    """A home, a sound server and a service with the voice warm, which speaks at `speed`."""

    speed = 1.0

    def setUp(self):
        super().setUp()
        self.sound = self.start_sound()
        self.home.write_state(speed=self.speed)
        self.service = self.start_service(self.sound.environment).wait_ready()
        self.service.wait_warm()
