"""Whether root is the machine's or a user's."""

import unittest
from unittest import mock

import support  # noqa: F401  (the way to the modules)
from instrumentlib import kernel_setting, privilege


class RootTest(unittest.TestCase):
    def test_a_map_of_all_users_is_the_machines(self):
        for text, users_own in (("         0          0 4294967295\n", False), ("0 1000 1\n1 100000 65535\n", True),
                                ("0 0 65536\n", True), ("", True)):
            with mock.patch("builtins.open", mock.mock_open(read_data=text)):
                self.assertEqual(privilege.is_users_own(), users_own, text)

    def test_a_small_receive_buffer_is_told_with_its_remedy_and_a_large_one_is_not(self):
        for value, told in ((212992, "sysctl -w net.core.rmem_max=30000000"), (kernel_setting.NEEDED, "")):
            with mock.patch.object(kernel_setting, "_read_setting", lambda value=value: value), mock.patch("builtins.print") as said:
                kernel_setting.tell_missing()
            self.assertIn(told, " ".join(str(call) for call in said.call_args_list))
            self.assertEqual(bool(told), said.called)


if __name__ == "__main__":
    unittest.main()
