<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
    <context>
        <name>about</name>
        <message>
            <source>About %1</source>
            <translation>О программе %1</translation>
        </message>
        <message>
            <source>Version: %1</source>
            <translation>Версия: %1</translation>
        </message>
        <message>
            <source>Platform: %1</source>
            <translation>Платформа: %1</translation>
        </message>
        <message>
            <source>Capabilities</source>
            <translation>Возможности</translation>
        </message>
        <message>
            <source>Plugins</source>
            <translation>Модули</translation>
        </message>
        <message>
            <source>No plugins are loaded.</source>
            <translation>Модули не загружены.</translation>
        </message>
        <message>
            <source>Identifier</source>
            <translation>Идентификатор</translation>
        </message>
        <message>
            <source>File</source>
            <translation>Файл</translation>
        </message>
        <message>
            <source>State</source>
            <translation>Состояние</translation>
        </message>
    </context>
    <context>
        <name>apply_pack</name>
        <message>
            <source>Applying firmware packages</source>
            <translation>Применение пакетов прошивок</translation>
        </message>
        <message>
            <source>Firmware packages:</source>
            <translation>Пакеты прошивок:</translation>
        </message>
        <message>
            <source>Target devices:</source>
            <translation>Целевые устройства:</translation>
        </message>
    </context>
    <context>
        <name>caps</name>
        <message>
            <source>%1.%2, build #%3</source>
            <translation>%1.%2, сборка №%3</translation>
        </message>
        <message>
            <source>Linux 64 bit</source>
            <translation>Linux, 64 бита</translation>
        </message>
    </context>
    <context>
        <name>cmd_processor</name>
        <message>
            <source>%1 set to "%2"</source>
            <translation>Переменной %1 присвоено "%2"</translation>
        </message>
        <message>
            <source>%1 is now alias for "%2"</source>
            <translation>%1 теперь псевдоним для "%2"</translation>
        </message>
        <message>
            <source>Internal error: incorrect command</source>
            <translation>Внутренняя ошибка: неверная команда</translation>
        </message>
        <message>
            <source>Processing limit reached (%1)</source>
            <translation>Достигнут предел обработки (%1)</translation>
        </message>
        <message>
            <source>variables</source>
            <translation>переменные</translation>
        </message>
        <message>
            <source>argument as the next subcommand</source>
            <translation>аргумент в качестве следующей подкоманды</translation>
        </message>
        <message>
            <source>No subcommands</source>
            <translation>Нет подкоманд</translation>
        </message>
        <message>
            <source>Variable resolution depth (%1) reached for %2</source>
            <translation>Достигнута глубина подстановки переменных (%1) для %2</translation>
        </message>
        <message>
            <source>Max amount of variables per line (%1) reached for %2</source>
            <translation>Достигнуто наибольшее число переменных в строке (%1) для %2</translation>
        </message>
        <message>
            <source>Variable not found: %1</source>
            <translation>Переменная не найдена: %1</translation>
        </message>
        <message>
            <source>nesting</source>
            <translation>вложенность</translation>
        </message>
        <message>
            <source>aliases</source>
            <translation>псевдонимы</translation>
        </message>
        <message>
            <source>Unknown command: %1</source>
            <translation>Неизвестная команда: %1</translation>
        </message>
        <message>
            <source>Unknown subcommand for %1: %2</source>
            <translation>Неизвестная подкоманда для %1: %2</translation>
        </message>
        <message>
            <source>Subcommand required for %1. Type %1.? to view available variants.</source>
            <translation>Для %1 нужна подкоманда. Введите %1.?, чтобы увидеть варианты.</translation>
        </message>
        <message>
            <source>Not enough arguments. Expected: %1</source>
            <translation>Недостаточно аргументов. Ожидается: %1</translation>
        </message>
    </context>
    <context>
        <name>cmdline</name>
        <message>
            <source>Command line</source>
            <translation>Командная строка</translation>
        </message>
        <message>
            <source>OVScript</source>
            <translation>OVScript</translation>
        </message>
        <message>
            <source>Lua</source>
            <translation>Lua</translation>
        </message>
        <message>
            <source>Console</source>
            <translation>Консоль</translation>
        </message>
        <message>
            <source>Load script file...</source>
            <translation>Загрузить файл сценария...</translation>
        </message>
        <message>
            <source>Save script file...</source>
            <translation>Сохранить файл сценария...</translation>
        </message>
        <message>
            <source>Copy output</source>
            <translation>Копировать вывод</translation>
        </message>
        <message>
            <source>Clear</source>
            <translation>Очистить</translation>
        </message>
        <message>
            <source>Executing: %1 / %2</source>
            <translation>Выполняется: %1 / %2</translation>
        </message>
        <message>
            <source>Ready</source>
            <translation>Готово</translation>
        </message>
        <message>
            <source>Macro playback: %1</source>
            <translation>Воспроизведение макроса: %1</translation>
        </message>
        <message>
            <source>Recording macro: %1</source>
            <translation>Запись макроса: %1</translation>
        </message>
        <message>
            <source>%1 (*.script *.ovscript *.lua)</source>
            <translation>%1 (*.script *.ovscript *.lua)</translation>
        </message>
        <message>
            <source>All scripts</source>
            <translation>Все сценарии</translation>
        </message>
        <message>
            <source>Select script file</source>
            <translation>Выберите файл сценария</translation>
        </message>
        <message>
            <source>Save script file</source>
            <translation>Сохранение файла сценария</translation>
        </message>
        <message>
            <source>Script saving error</source>
            <translation>Ошибка сохранения сценария</translation>
        </message>
        <message>
            <source>Unable to save script %1:
%2</source>
            <translation>Не удалось сохранить сценарий %1:
%2</translation>
        </message>
    </context>
    <context>
        <name>core</name>
        <message>
            <source>Version: %1, %2, capabilities: %3</source>
            <translation>Версия: %1, %2, возможности: %3</translation>
        </message>
        <message>
            <source>Running in batch mode</source>
            <translation>Работа в пакетном режиме</translation>
        </message>
        <message>
            <source>Disabling remote communications because offline mode was specified.</source>
            <translation>Связь с удалёнными службами отключена: задан автономный режим.</translation>
        </message>
        <message>
            <source>Offline mode</source>
            <translation>Автономный режим</translation>
        </message>
        <message>
            <source>The application is started in offline mode. Communication with remote services will not be established.</source>
            <translation>Приложение запущено в автономном режиме. Связь с удалёнными службами устанавливаться не будет.</translation>
        </message>
        <message>
            <source>Menu</source>
            <translation>Меню</translation>
        </message>
        <message>
            <source>Done</source>
            <translation>Готово</translation>
        </message>
        <message>
            <source>Introduced: flow ident %1</source>
            <translation>Добавлено: идентификатор потока %1</translation>
        </message>
        <message>
            <source>The list is empty</source>
            <translation>Список пуст</translation>
        </message>
        <message>
            <source>No tasks. Import the task list or add a new one.</source>
            <translation>Нет задач. Импортируйте список задач или добавьте новую.</translation>
        </message>
        <message>
            <source>Nothing is selected</source>
            <translation>Ничего не выбрано</translation>
        </message>
        <message>
            <source>Select at least one task before launching.</source>
            <translation>Перед запуском выберите хотя бы одну задачу.</translation>
        </message>
        <message numerus="yes">
            <source>Launching %n tasks...</source>
            <translation>
                <numerusform>Запуск %n задачи...</numerusform>
                <numerusform>Запуск %n задач...</numerusform>
                <numerusform>Запуск %n задач...</numerusform>
            </translation>
        </message>
        <message>
            <source>Unknown subnet mask in application settings: %1</source>
            <translation>Неизвестная маска подсети в настройках приложения: %1</translation>
        </message>
        <message>
            <source>Unknown menu option ident: %1</source>
            <translation>Неизвестный идентификатор пункта меню: %1</translation>
        </message>
        <message numerus="yes">
            <source>Started with %n tasks</source>
            <translation>
                <numerusform>Запущено с %n задачей</numerusform>
                <numerusform>Запущено с %n задачами</numerusform>
                <numerusform>Запущено с %n задачами</numerusform>
            </translation>
        </message>
        <message>
            <source>Task %1 started</source>
            <translation>Задача %1 запущена</translation>
        </message>
        <message>
            <source>Unknown task: %1</source>
            <translation>Неизвестная задача: %1</translation>
        </message>
        <message>
            <source>Flow ended</source>
            <translation>Поток завершён</translation>
        </message>
        <message>
            <source>-- all done --</source>
            <translation>-- всё выполнено --</translation>
        </message>
        <message>
            <source>Service client</source>
            <translation>Клиент службы</translation>
        </message>
        <message>
            <source>No service identity is configured (Service/client_id, Service/client_key): requests to the update service will fail.</source>
            <translation>Учётные данные службы не заданы (Service/client_id, Service/client_key): запросы к службе обновлений завершатся ошибкой.</translation>
        </message>
        <message>
            <source>Can't get the device information</source>
            <translation>Не удалось получить сведения об устройстве</translation>
        </message>
        <message>
            <source>Awaiting device...</source>
            <translation>Ожидание устройства...</translation>
        </message>
        <message>
            <source>Device is gone.</source>
            <translation>Устройство пропало.</translation>
        </message>
        <message>
            <source>Changing IP-address...</source>
            <translation>Смена IP-адреса...</translation>
        </message>
        <message>
            <source>Can't change the IP-address of the device.</source>
            <translation>Не удалось сменить IP-адрес устройства.</translation>
        </message>
        <message>
            <source>Changing port...</source>
            <translation>Смена порта...</translation>
        </message>
        <message>
            <source>Can't change the port number</source>
            <translation>Не удалось сменить номер порта</translation>
        </message>
        <message>
            <source>Changing subnet mask...</source>
            <translation>Смена маски подсети...</translation>
        </message>
        <message>
            <source>Can't change the subnet mask</source>
            <translation>Не удалось сменить маску подсети</translation>
        </message>
        <message>
            <source>Changing transfer policy...</source>
            <translation>Смена политики передачи...</translation>
        </message>
        <message>
            <source>Can't change the transfer policy</source>
            <translation>Не удалось сменить политику передачи</translation>
        </message>
        <message>
            <source>Fixing...</source>
            <translation>Исправление...</translation>
        </message>
        <message>
            <source>Can't fix the device.</source>
            <translation>Не удалось исправить устройство.</translation>
        </message>
        <message>
            <source>Configuration import...</source>
            <translation>Импорт конфигурации...</translation>
        </message>
        <message>
            <source>Can't import device configuration</source>
            <translation>Не удалось импортировать конфигурацию устройства</translation>
        </message>
        <message>
            <source>Rebooting...</source>
            <translation>Перезагрузка...</translation>
        </message>
        <message>
            <source>Can't reboot the device.</source>
            <translation>Не удалось перезагрузить устройство.</translation>
        </message>
        <message>
            <source>Resetting configuration...</source>
            <translation>Сброс конфигурации...</translation>
        </message>
        <message>
            <source>Can't reset the device configuration.</source>
            <translation>Не удалось сбросить конфигурацию устройства.</translation>
        </message>
        <message>
            <source>Enabling DHCP...</source>
            <translation>Включение DHCP...</translation>
        </message>
        <message>
            <source>Disabling DHCP...</source>
            <translation>Отключение DHCP...</translation>
        </message>
        <message>
            <source>Can't enable DHCP</source>
            <translation>Не удалось включить DHCP</translation>
        </message>
        <message>
            <source>Can't disable DHCP</source>
            <translation>Не удалось отключить DHCP</translation>
        </message>
        <message>
            <source>Setting the language...</source>
            <translation>Установка языка...</translation>
        </message>
        <message>
            <source>Can't set the language</source>
            <translation>Не удалось установить язык</translation>
        </message>
        <message>
            <source>No tasks to cancel</source>
            <translation>Нет задач для отмены</translation>
        </message>
        <message>
            <source>Canceling tasks: %1</source>
            <translation>Отмена задач: %1</translation>
        </message>
        <message>
            <source>Tasks canceled %1/%2</source>
            <translation>Отменено задач %1/%2</translation>
        </message>
        <message>
            <source>Error %1: %2</source>
            <translation>Ошибка %1: %2</translation>
        </message>
        <message>
            <source>Unable to continue</source>
            <translation>Невозможно продолжить</translation>
        </message>
        <message>
            <source>No information</source>
            <translation>Нет сведений</translation>
        </message>
        <message>
            <source>Device serial: %1, hardware: %2, version: %3, build time: %4</source>
            <translation>Серийный номер устройства: %1, оборудование: %2, версия: %3, время сборки: %4</translation>
        </message>
        <message>
            <source>%1 version %2, %3</source>
            <translation>%1 версия %2, %3</translation>
        </message>
        <message>
            <source>The queue is busy</source>
            <translation>Очередь занята</translation>
        </message>
        <message>
            <source>Unable to run scan while the queue is active. Wait for the queue to finish and try again.</source>
            <translation>Невозможно начать поиск, пока очередь активна. Дождитесь завершения очереди и повторите попытку.</translation>
        </message>
        <message>
            <source>Already launched</source>
            <translation>Уже запущено</translation>
        </message>
        <message>
            <source>Wait for the scan to finish or cancel it.</source>
            <translation>Дождитесь завершения поиска или отмените его.</translation>
        </message>
        <message>
            <source>Searching for %1 devices...</source>
            <translation>Поиск %1 устройств...</translation>
        </message>
        <message>
            <source>Searching for devices...</source>
            <translation>Поиск устройств...</translation>
        </message>
        <message numerus="yes">
            <source>Found %n devices:</source>
            <translation>
                <numerusform>Найдено %n устройство:</numerusform>
                <numerusform>Найдено %n устройства:</numerusform>
                <numerusform>Найдено %n устройств:</numerusform>
            </translation>
        </message>
        <message>
            <source>* Device %1: %2</source>
            <translation>* Устройство %1: %2</translation>
        </message>
        <message numerus="yes">
            <source>Imported %n found devices</source>
            <translation>
                <numerusform>Импортировано %n найденное устройство</numerusform>
                <numerusform>Импортировано %n найденных устройства</numerusform>
                <numerusform>Импортировано %n найденных устройств</numerusform>
            </translation>
        </message>
        <message>
            <source>Firmwares not assigned</source>
            <translation>Прошивки не назначены</translation>
        </message>
        <message>
            <source>Updates not found</source>
            <translation>Обновления не найдены</translation>
        </message>
        <message>
            <source>Denied in service</source>
            <translation>Отказано службой</translation>
        </message>
        <message>
            <source>Checking updates...</source>
            <translation>Проверка обновлений...</translation>
        </message>
        <message>
            <source>Can't check updates for the "%1"</source>
            <translation>Не удалось проверить обновления для «%1»</translation>
        </message>
        <message>
            <source>Found updated version for %1 (%2, %3 functionality)</source>
            <translation>Найдена новая версия для %1 (%2, функциональность %3)</translation>
        </message>
        <message>
            <source>Update available</source>
            <translation>Доступно обновление</translation>
        </message>
        <message>
            <source>No updates for the %1: %2</source>
            <translation>Нет обновлений для %1: %2</translation>
        </message>
        <message>
            <source>Downloading update...</source>
            <translation>Загрузка обновления...</translation>
        </message>
        <message>
            <source>Can't retrieve file for the requested version</source>
            <translation>Не удалось получить файл запрошенной версии</translation>
        </message>
        <message>
            <source>Got data for requested version</source>
            <translation>Получены данные запрошенной версии</translation>
        </message>
        <message>
            <source>Now using %1 functionality</source>
            <translation>Используется функциональность %1</translation>
        </message>
        <message>
            <source>SDK init failed</source>
            <translation>Не удалось инициализировать SDK</translation>
        </message>
        <message>
            <source>System error</source>
            <translation>Системная ошибка</translation>
        </message>
        <message>
            <source>Now changing used functionality from %1 to %2</source>
            <translation>Смена используемой функциональности с %1 на %2</translation>
        </message>
        <message>
            <source>File I/O failed</source>
            <translation>Ошибка файлового ввода-вывода</translation>
        </message>
        <message>
            <source>Input-output error</source>
            <translation>Ошибка ввода-вывода</translation>
        </message>
        <message>
            <source>Temporary file data mismatch</source>
            <translation>Данные временного файла не совпадают</translation>
        </message>
        <message>
            <source>Unknown SDK type: "%1"</source>
            <translation>Неизвестный тип SDK: «%1»</translation>
        </message>
        <message>
            <source>Error %1</source>
            <translation>Ошибка %1</translation>
        </message>
        <message>
            <source>Task failed</source>
            <translation>Задача завершилась ошибкой</translation>
        </message>
        <message>
            <source>Completed</source>
            <translation>Завершено</translation>
        </message>
        <message>
            <source>Task completed</source>
            <translation>Задача выполнена</translation>
        </message>
        <message>
            <source>Unhandled flash progress code %1: v1=%2, v2=%3</source>
            <translation>Необработанный код хода прошивки %1: v1=%2, v2=%3</translation>
        </message>
        <message>
            <source>Now uploading the file</source>
            <translation>Передача файла</translation>
        </message>
        <message>
            <source>Now upgrading the device</source>
            <translation>Обновление устройства</translation>
        </message>
        <message>
            <source>Uploading: %1%</source>
            <translation>Передача: %1%</translation>
        </message>
        <message>
            <source>Upgrading: %1%</source>
            <translation>Обновление: %1%</translation>
        </message>
        <message>
            <source>Done upgrading</source>
            <translation>Обновление выполнено</translation>
        </message>
        <message>
            <source>Failed to upgrade: %1</source>
            <translation>Не удалось обновить: %1</translation>
        </message>
        <message>
            <source>Confirmed new firmware for %1</source>
            <translation>Подтверждена новая прошивка для %1</translation>
        </message>
        <message>
            <source>Remote database access failure, code %1, subsequent code is %2: %3, %4</source>
            <translation>Ошибка доступа к удалённой базе, код %1, дополнительный код %2: %3, %4</translation>
        </message>
        <message>
            <source>Failed to access the service, check your Internet connection.</source>
            <translation>Не удалось обратиться к службе, проверьте подключение к Интернету.</translation>
        </message>
        <message>
            <source>Remote service error, code %1:%2: "%3: %4"</source>
            <translation>Ошибка удалённой службы, код %1:%2: «%3: %4»</translation>
        </message>
        <message>
            <source>Disabling server communications due to generic network error</source>
            <translation>Связь с сервером отключена из-за общей сетевой ошибки</translation>
        </message>
        <message>
            <source>Communication error</source>
            <translation>Ошибка связи</translation>
        </message>
        <message>
            <source>Due to a communication error with the server, further work with it was disabled until the application was restarted.</source>
            <translation>Из-за ошибки связи с сервером дальнейшая работа с ним отключена до перезапуска приложения.</translation>
        </message>
        <message>
            <source>Cancelling task %1 for device %2</source>
            <translation>Отмена задачи %1 для устройства %2</translation>
        </message>
        <message>
            <source>Execution interrupted</source>
            <translation>Выполнение прервано</translation>
        </message>
        <message>
            <source>Interface</source>
            <translation>Интерфейс</translation>
        </message>
        <message>
            <source>All tasks completed</source>
            <translation>Все задачи выполнены</translation>
        </message>
        <message>
            <source>Running tasks: %1 out of %2 (limited to %3)</source>
            <translation>Выполняется задач: %1 из %2 (ограничение %3)</translation>
        </message>
        <message>
            <source>Running tasks: %1 out of %2</source>
            <translation>Выполняется задач: %1 из %2</translation>
        </message>
        <message>
            <source>Choose language</source>
            <translation>Выбор языка</translation>
        </message>
        <message>
            <source>Languages</source>
            <translation>Языки</translation>
        </message>
        <message>
            <source>Creating cache</source>
            <translation>Создание кэша</translation>
        </message>
        <message>
            <source>Created the cache file.</source>
            <translation>Файл кэша создан.</translation>
        </message>
        <message>
            <source>Failed to create the cache file, no cache will be used.</source>
            <translation>Не удалось создать файл кэша, кэш не будет использоваться.</translation>
        </message>
        <message>
            <source>Loading cache</source>
            <translation>Загрузка кэша</translation>
        </message>
        <message>
            <source>Failed to load the cache file: error code %1.</source>
            <translation>Не удалось загрузить файл кэша: код ошибки %1.</translation>
        </message>
        <message>
            <source>Cache file error</source>
            <translation>Ошибка файла кэша</translation>
        </message>
        <message>
            <source>Unable to load the cache file. Create a new one?</source>
            <translation>Не удаётся загрузить файл кэша. Создать новый?</translation>
        </message>
        <message>
            <source>Unable to create the cache file</source>
            <translation>Не удаётся создать файл кэша</translation>
        </message>
        <message>
            <source>The update is found in the cache</source>
            <translation>Обновление найдено в кэше</translation>
        </message>
        <message>
            <source>Failed to decrypt the data from the cache file</source>
            <translation>Не удалось расшифровать данные из файла кэша</translation>
        </message>
        <message>
            <source>Failed to extract the data from the cache file: cached update data mismatches target.</source>
            <translation>Не удалось извлечь данные из файла кэша: данные обновления в кэше не совпадают с целевыми.</translation>
        </message>
        <message>
            <source>Firmware cached</source>
            <translation>Прошивка сохранена в кэше</translation>
        </message>
        <message>
            <source>Error adding to the cache file</source>
            <translation>Ошибка добавления в файл кэша</translation>
        </message>
        <message>
            <source>"%1": error code %2</source>
            <translation>«%1»: код ошибки %2</translation>
        </message>
        <message>
            <source>Firmware packages</source>
            <translation>Пакеты прошивок</translation>
        </message>
        <message>
            <source>No firmware packages found. Check their location and try again.</source>
            <translation>Пакеты прошивок не найдены. Проверьте их расположение и повторите попытку.</translation>
        </message>
        <message>
            <source>Firmware package error</source>
            <translation>Ошибка пакета прошивок</translation>
        </message>
        <message>
            <source>Unable to load firmware packages:</source>
            <translation>Не удаётся загрузить пакеты прошивок:</translation>
        </message>
        <message>
            <source>Nothing selected</source>
            <translation>Ничего не выбрано</translation>
        </message>
        <message>
            <source>The updates will not be applied because no selected devices are available.</source>
            <translation>Обновления не будут применены, так как нет доступных выбранных устройств.</translation>
        </message>
        <message>
            <source>Error</source>
            <translation>Ошибка</translation>
        </message>
        <message>
            <source>Error loading the firmware package</source>
            <translation>Ошибка загрузки пакета прошивок</translation>
        </message>
        <message>
            <source>Registered the device %1</source>
            <translation>Устройство %1 зарегистрировано</translation>
        </message>
        <message>
            <source>Registration error for %1</source>
            <translation>Ошибка регистрации %1</translation>
        </message>
        <message>
            <source>Unable get IP- or MAC-address: IP %1, MAC %2.</source>
            <translation>Не удалось получить IP- или MAC-адрес: IP %1, MAC %2.</translation>
        </message>
        <message>
            <source>MAC-address %1 registered for %2</source>
            <translation>MAC-адрес %1 зарегистрирован для %2</translation>
        </message>
        <message>
            <source>MAC-address registration error for %1</source>
            <translation>Ошибка регистрации MAC-адреса для %1</translation>
        </message>
        <message>
            <source>&lt;h3&gt;Build %1 is available for updating.&lt;/h3&gt;
Update now?&lt;br&gt;
If you choose "No" the application will be updated on the next start.&lt;br&gt;
If you choose "Cancel" the update checking will be disabled.</source>
            <translation>&lt;h3&gt;Доступна для обновления сборка %1.&lt;/h3&gt;
Обновить сейчас?&lt;br&gt;
Если выбрать «Нет», приложение будет обновлено при следующем запуске.&lt;br&gt;
Если выбрать «Отмена», проверка обновлений будет отключена.</translation>
        </message>
        <message>
            <source>Application update</source>
            <translation>Обновление приложения</translation>
        </message>
        <message>
            <source>Update checking is disabled until next start.</source>
            <translation>Проверка обновлений отключена до следующего запуска.</translation>
        </message>
        <message>
            <source>Tasks are in progress at the moment, the update will be postponed until a restart.</source>
            <translation>Сейчас выполняются задачи, обновление отложено до перезапуска.</translation>
        </message>
        <message>
            <source>Unable to start the updater program %1.</source>
            <translation>Не удалось запустить программу обновления %1.</translation>
        </message>
        <message>
            <source>The update is handed over to the updater program, the application quits.</source>
            <translation>Обновление передано программе обновления, приложение завершает работу.</translation>
        </message>
        <message>
            <source>Ошибка обновления</source>
            <translation>Ошибка обновления</translation>
        </message>
        <message>
            <source>Unknown command: %1</source>
            <translation>Неизвестная команда: %1</translation>
        </message>
        <message>
            <source>The settings file "%1" can't be read: it is left as it is, and this run uses the defaults.</source>
            <translation>Файл настроек "%1" не удаётся прочитать: он оставлен как есть, а в этом запуске используются значения по умолчанию.</translation>
        </message>
        <message>
            <source>This device is already being worked on in another row (%1)</source>
            <translation>С этим устройством уже работают в другой строке (%1)</translation>
        </message>
        <message>
            <source>The cache file is full with %1 firmwares: no more are added to it</source>
            <translation>Файл кэша заполнен (%1 прошивок): новые в него больше не добавляются</translation>
        </message>
        <message>
            <source>The download of firmware %1 is damaged: it is neither cached nor flashed</source>
            <translation>Загруженная прошивка %1 повреждена: она не кэшируется и не прошивается</translation>
        </message>
        <message>
            <source>Firmware %1 is empty or not the file it names: the device isn't flashed</source>
            <translation>Прошивка %1 пуста или не совпадает со своим идентификатором: устройство не прошивается</translation>
        </message>
        <message>
            <source>Damaged firmware</source>
            <translation>Повреждённая прошивка</translation>
        </message>
        <message>
            <source>The limit of open files is raised from %1 to %2</source>
            <translation>Ограничение числа открытых файлов поднято с %1 до %2</translation>
        </message>
        <message>
            <source>Only %1 files may be open at once, and %2 devices at work need about %3: some of them may fail to connect. Raise the limit of open files (ulimit -n) or limit the number of concurrent tasks.</source>
            <translation>Одновременно может быть открыто только %1 файлов, а %2 устройствам в работе нужно около %3: некоторые из них могут не подключиться. Поднимите ограничение числа открытых файлов (ulimit -n) или ограничьте число одновременных задач.</translation>
        </message>
        <message>
            <source>Task not found</source>
            <translation>Задача не найдена</translation>
        </message>
        <message>
            <source>Script autorun</source>
            <translation>Автозапуск скриптов</translation>
        </message>
        <message>
            <source>Line %1, error "%2"</source>
            <translation>Строка %1, ошибка "%2"</translation>
        </message>
        <message>
            <source>Unable to open script %1: %2</source>
            <translation>Не удалось открыть скрипт %1: %2</translation>
        </message>
        <message>
            <source>Loaded script: %1</source>
            <translation>Загружен скрипт: %1</translation>
        </message>
        <message>
            <source>IP-address</source>
            <translation>IP-адрес</translation>
        </message>
        <message>
            <source>Submask</source>
            <translation>Маска подсети</translation>
        </message>
        <message>
            <source>Port name</source>
            <translation>Имя порта</translation>
        </message>
        <message>
            <source>Port value</source>
            <translation>Номер порта</translation>
        </message>
        <message>
            <source>Unsufficient arguments, expected %1-%2: %3</source>
            <translation>Недостаточно аргументов, ожидается %1-%2: %3</translation>
        </message>
        <message>
            <source>Too many devices, reduce the number of selected devices by %1.</source>
            <translation>Слишком много устройств, уменьшите число выбранных устройств на %1.</translation>
        </message>
        <message>
            <source>Too many devices</source>
            <translation>Слишком много устройств</translation>
        </message>
        <message>
            <source>Reduce the number of selected devices by %1.</source>
            <translation>Уменьшите число выбранных устройств на %1.</translation>
        </message>
        <message>
            <source>Start address is out of range.</source>
            <translation>Начальный адрес вне диапазона.</translation>
        </message>
        <message>
            <source>Out of range</source>
            <translation>Вне диапазона</translation>
        </message>
        <message>
            <source>Unable to assign addresses for %1 devices from the specified address range.
Lower the start address to %2?</source>
            <translation>Невозможно назначить адреса %1 устройствам из указанного диапазона.
Понизить начальный адрес до %2?</translation>
        </message>
        <message>
            <source>Skipping unknown device: %1</source>
            <translation>Пропускаем неизвестное устройство: %1</translation>
        </message>
        <message>
            <source>Executing...</source>
            <translation>Выполнение...</translation>
        </message>
        <message>
            <source>Unable to clear task list: some tasks are still running</source>
            <translation>Невозможно очистить список задач: некоторые задачи ещё выполняются</translation>
        </message>
        <message>
            <source>Explaining %1 ...</source>
            <translation>Описание %1 ...</translation>
        </message>
        <message>
            <source>Devices exported</source>
            <translation>Устройств экспортировано</translation>
        </message>
        <message>
            <source>Devices imported</source>
            <translation>Устройств импортировано</translation>
        </message>
        <message>
            <source>Total tasks: %1</source>
            <translation>Всего задач: %1</translation>
        </message>
        <message>
            <source>Device registration is disabled.</source>
            <translation>Регистрация устройств отключена.</translation>
        </message>
        <message>
            <source>Unknown registration type: %1</source>
            <translation>Неизвестный тип регистрации: %1</translation>
        </message>
        <message>
            <source>The queue is busy, unable to scan</source>
            <translation>Очередь занята, поиск невозможен</translation>
        </message>
        <message>
            <source>Scanning...</source>
            <translation>Поиск...</translation>
        </message>
        <message>
            <source>Devices found</source>
            <translation>Найдено устройств</translation>
        </message>
        <message>
            <source>Already scanning</source>
            <translation>Поиск уже идёт</translation>
        </message>
        <message>
            <source>Basic scanning is impossible to stop</source>
            <translation>Обычный поиск невозможно остановить</translation>
        </message>
        <message>
            <source>Already stopped</source>
            <translation>Уже остановлено</translation>
        </message>
        <message>
            <source>Unknown search command: %1</source>
            <translation>Неизвестная команда поиска: %1</translation>
        </message>
        <message>
            <source>Unknown menu: %1</source>
            <translation>Неизвестное меню: %1</translation>
        </message>
        <message>
            <source>Unable to download from %1</source>
            <translation>Не удалось загрузить с %1</translation>
        </message>
        <message>
            <source>File %1 successfully downloaded as %2</source>
            <translation>Файл %1 успешно загружен как %2</translation>
        </message>
        <message>
            <source>Sound queue should be set in pairs.</source>
            <translation>Звуковая очередь задаётся парами.</translation>
        </message>
        <message>
            <source>Unable to use cache as firmware package</source>
            <translation>Невозможно использовать кэш как пакет прошивок</translation>
        </message>
        <message>
            <source>Error loading firmware package</source>
            <translation>Ошибка загрузки пакета прошивок</translation>
        </message>
        <message>
            <source>No target devices available</source>
            <translation>Нет доступных целевых устройств</translation>
        </message>
        <message>
            <source>Error applying firmware package</source>
            <translation>Ошибка применения пакета прошивок</translation>
        </message>
        <message>
            <source>Command disabled</source>
            <translation>Команда отключена</translation>
        </message>
        <message>
            <source>Event attachment command requires specifying a type of action</source>
            <translation>Команде привязки события нужно указать тип действия</translation>
        </message>
        <message>
            <source>This event action is not supported</source>
            <translation>Это действие для события не поддерживается</translation>
        </message>
        <message>
            <source>Variable %1 not found</source>
            <translation>Переменная %1 не найдена</translation>
        </message>
        <message>
            <source>Variable %1 deleted</source>
            <translation>Переменная %1 удалена</translation>
        </message>
        <message>
            <source>No such recording</source>
            <translation>Нет такой записи</translation>
        </message>
        <message>
            <source>Removed macro: %1</source>
            <translation>Удалён макрос: %1</translation>
        </message>
        <message>
            <source>Alias %1 not found</source>
            <translation>Псевдоним %1 не найден</translation>
        </message>
        <message>
            <source>Alias %1 removed</source>
            <translation>Псевдоним %1 удалён</translation>
        </message>
        <message>
            <source>Unknown setting: %1</source>
            <translation>Неизвестная настройка: %1</translation>
        </message>
        <message>
            <source>Previous values</source>
            <translation>Прежние значения</translation>
        </message>
        <message>
            <source>Lua runtime</source>
            <translation>Среда Lua</translation>
        </message>
        <message>
            <source>Unable to initialize Lua runtime.</source>
            <translation>Не удалось инициализировать среду Lua.</translation>
        </message>
        <message>
            <source>Loading plugins</source>
            <translation>Загрузка подключаемых модулей</translation>
        </message>
        <message>
            <source>Loaded %1 plugins</source>
            <translation>Загружено подключаемых модулей: %1</translation>
        </message>
        <message>
            <source>Starting plugins</source>
            <translation>Запуск подключаемых модулей</translation>
        </message>
        <message>
            <source>Initialized %1 plugins</source>
            <translation>Запущено подключаемых модулей: %1</translation>
        </message>
        <message>
            <source>Plugin %1 command integration error</source>
            <translation>Ошибка встраивания команд модуля %1</translation>
        </message>
        <message>
            <source>Plugin %1 initialization error</source>
            <translation>Ошибка инициализации модуля %1</translation>
        </message>
        <message>
            <source>Plugin %1 failed to execute command %2</source>
            <translation>Модулю %1 не удалось выполнить команду %2</translation>
        </message>
        <message>
            <source>Runtime error: %1</source>
            <translation>Ошибка выполнения: %1</translation>
        </message>
        <message>
            <source>Runtime message: %1</source>
            <translation>Сообщение сценария: %1</translation>
        </message>
        <message>
            <source>Failed to load plugin %1.</source>
            <translation>Не удалось загрузить модуль %1.</translation>
        </message>
        <message>
            <source>Failed to register plugin %1.</source>
            <translation>Не удалось зарегистрировать модуль %1.</translation>
        </message>
        <message>
            <source>Loaded plugin %1.</source>
            <translation>Модуль %1 загружен.</translation>
        </message>
        <message>
            <source>No such plugin: %1.</source>
            <translation>Нет такого модуля: %1.</translation>
        </message>
        <message>
            <source>Failed to unregister plugin %1.</source>
            <translation>Не удалось отменить регистрацию модуля %1.</translation>
        </message>
        <message>
            <source>Failed to unload plugin %1.</source>
            <translation>Не удалось выгрузить модуль %1.</translation>
        </message>
        <message>
            <source>Unloaded plugin %1.</source>
            <translation>Модуль %1 выгружен.</translation>
        </message>
        <message>
            <source>Bad plugin ident: %1</source>
            <translation>Неверный идентификатор плагина: %1</translation>
        </message>
        <message>
            <source>Plugin action %1 failed</source>
            <translation>Действие плагина %1 не выполнено</translation>
        </message>
        <message>
            <source>Command copied to the clipboard: %1</source>
            <translation>Команда скопирована в буфер обмена: %1</translation>
        </message>
        <message>
            <source>Variable %1, containing name of the address assignment macro, required</source>
            <translation>Переменная %1, содержащая имя макроса назначения адресов, обязательна</translation>
        </message>
        <message>
            <source>Select configuration file</source>
            <translation>Выбор файла конфигурации</translation>
        </message>
        <message>
            <source>Variable %1, containing name of the continuous scan macro, requied</source>
            <translation>Переменная %1, содержащая имя макроса непрерывного поиска, обязательна</translation>
        </message>
        <message>
            <source>Unknown action menu ident: %1</source>
            <translation>Неизвестный идентификатор меню действий: %1</translation>
        </message>
        <message>
            <source>Unknown port type: %1</source>
            <translation>Неизвестный тип порта: %1</translation>
        </message>
        <message>
            <source>Specify port value for %1</source>
            <translation>Укажите значение порта %1</translation>
        </message>
        <message>
            <source>Running</source>
            <translation>Выполняется</translation>
        </message>
        <message>
            <source>Not run</source>
            <translation>Не запускалось</translation>
        </message>
        <message>
            <source>Can't write the report "%1": %2</source>
            <translation>Не удаётся записать отчёт «%1»: %2</translation>
        </message>
        <message numerus="yes">
            <source>Report of %n devices written to "%1"</source>
            <translation>
                <numerusform>Отчёт по %n устройству записан в «%1»</numerusform>
                <numerusform>Отчёт по %n устройствам записан в «%1»</numerusform>
                <numerusform>Отчёт по %n устройствам записан в «%1»</numerusform>
            </translation>
        </message>
        <message>
            <source>Report</source>
            <translation>Отчёт</translation>
        </message>
        <message>
            <source>Can't write the report "%1".</source>
            <translation>Не удаётся записать отчёт «%1».</translation>
        </message>
        <message>
            <source>Checking the version after the flash...</source>
            <translation>Проверка версии после прошивки...</translation>
        </message>
        <message>
            <source>The device didn't come back after the flash: %1</source>
            <translation>Устройство не вернулось после прошивки: %1</translation>
        </message>
        <message>
            <source>Waiting for the device to come back: %1</source>
            <translation>Ожидание возвращения устройства: %1</translation>
        </message>
        <message>
            <source>The device came back from the flash still on version %1; the update is not confirmed</source>
            <translation>Устройство вернулось после прошивки с прежней версией %1; обновление не подтверждено</translation>
        </message>
        <message>
            <source>Still on %1 after the flash</source>
            <translation>После прошивки осталась версия %1</translation>
        </message>
        <message>
            <source>The device runs version %1 after the flash (it had %2)</source>
            <translation>После прошивки на устройстве версия %1 (была %2)</translation>
        </message>
        <message>
            <source>Can't write the report "%1"</source>
            <translation>Не удаётся записать отчёт «%1»</translation>
        </message>
        <message>
            <source>Devices in the report</source>
            <translation>Устройств в отчёте</translation>
        </message>
        <message>
            <source>Events</source>
            <translation>События</translation>
        </message>
        <message>
            <source>Specified macro %1 does not exists.</source>
            <translation>Указанный макрос %1 не существует.</translation>
        </message>
        <message>
            <source>Actions</source>
            <translation>Действия</translation>
        </message>
        <message>
            <source>Actions toolbar</source>
            <translation>Панель действий</translation>
        </message>
        <message>
            <source>Unknown quick action: %1</source>
            <translation>Неизвестное быстрое действие: %1</translation>
        </message>
        <message>
            <source>Unknown quick action mode %1 of %2</source>
            <translation>Неизвестный режим %1 быстрого действия %2</translation>
        </message>
        <message>
            <source>Executing command</source>
            <translation>Выполнение команды</translation>
        </message>
        <message>
            <source>Unable to clear the list: the queue is running</source>
            <translation>Невозможно очистить список: очередь выполняется</translation>
        </message>
        <message>
            <source>Executing "%1"</source>
            <translation>Выполнение "%1"</translation>
        </message>
        <message>
            <source>The command %1 can't run from the toolbar</source>
            <translation>Команду %1 нельзя выполнить с панели инструментов</translation>
        </message>
        <message>
            <source>Event handler attached for %1</source>
            <translation>Обработчик события назначен для %1</translation>
        </message>
        <message>
            <source>Failed to detach event %1 with arguments %2.</source>
            <translation>Не удалось отсоединить событие %1 с аргументами %2.</translation>
        </message>
        <message>
            <source>&lt;none&gt;</source>
            <translation>&lt;нет&gt;</translation>
        </message>
        <message>
            <source>Macro&gt;</source>
            <translation>Макрос&gt;</translation>
        </message>
    </context>
    <context>
        <name>dynmenu::actions_menu</name>
        <message>
            <source>Find devices</source>
            <translation>Найти устройства</translation>
        </message>
        <message>
            <source>Add device...</source>
            <translation>Добавить устройство...</translation>
        </message>
        <message>
            <source>Assign addresses</source>
            <translation>Назначить адреса</translation>
        </message>
        <message>
            <source>Reset configuration</source>
            <translation>Сбросить конфигурацию</translation>
        </message>
        <message>
            <source>Clear</source>
            <translation>Очистить</translation>
        </message>
        <message>
            <source>Assign addresses:</source>
            <translation>Назначить адрес:</translation>
        </message>
        <message>
            <source>Set transfer policy</source>
            <translation>Политика передачи</translation>
        </message>
        <message>
            <source>Quality</source>
            <translation>Качество</translation>
        </message>
        <message>
            <source>Set language to:</source>
            <translation>Установить язык:</translation>
        </message>
        <message>
            <source>1. Russian</source>
            <translation>1. Русский</translation>
        </message>
        <message>
            <source>2. English</source>
            <translation>2. Английский</translation>
        </message>
        <message>
            <source>Set subnet mask</source>
            <translation>Установить маску подсети</translation>
        </message>
        <message>
            <source>Change port</source>
            <translation>Изменить порт</translation>
        </message>
        <message>
            <source>NETIP TCP port</source>
            <translation>Порт NETIP TCP</translation>
        </message>
        <message>
            <source>NETIP UDP port</source>
            <translation>Порт NETIP UDP</translation>
        </message>
        <message>
            <source>SSL port</source>
            <translation>Порт SSL</translation>
        </message>
        <message>
            <source>HTTP port</source>
            <translation>Порт HTTP</translation>
        </message>
        <message>
            <source>DHCP management</source>
            <translation>Управление DHCP</translation>
        </message>
        <message>
            <source>Enable</source>
            <translation>Включить</translation>
        </message>
        <message>
            <source>Disable</source>
            <translation>Выключить</translation>
        </message>
        <message>
            <source>Reboot</source>
            <translation>Перезагрузить</translation>
        </message>
        <message>
            <source>Import configuration...</source>
            <translation>Импорт конфигурации...</translation>
        </message>
    </context>
    <context>
        <name>dynmenu::options_menu</name>
        <message>
            <source>Main</source>
            <translation>Основные</translation>
        </message>
        <message>
            <source>Reset only network settings</source>
            <translation>Сбрасывать только сетевые настройки</translation>
        </message>
        <message>
            <source>Reboot after:</source>
            <translation>Перезагружать после:</translation>
        </message>
        <message>
            <source>Transfer policy changed</source>
            <translation>Смены политики передачи</translation>
        </message>
        <message>
            <source>Language changed</source>
            <translation>Смены языка</translation>
        </message>
        <message>
            <source>Configuration import</source>
            <translation>Импорта конфигурации</translation>
        </message>
        <message>
            <source>Wait for device after reboot</source>
            <translation>Ждать устройство после перезагрузки</translation>
        </message>
        <message>
            <source>Preferred subnet mask:</source>
            <translation>Предпочтительная маска подсети:</translation>
        </message>
        <message>
            <source>Check after changing IP-address</source>
            <translation>Проверять после смены IP-адреса</translation>
        </message>
        <message>
            <source>Register devices</source>
            <translation>Регистрировать устройства</translation>
        </message>
        <message>
            <source>Register MAC-addresses</source>
            <translation>Регистрировать MAC-адреса</translation>
        </message>
        <message>
            <source>Log filtering:</source>
            <translation>Фильтр журнала:</translation>
        </message>
        <message>
            <source>Tasks</source>
            <translation>Задачи</translation>
        </message>
        <message>
            <source>Autorun tasks</source>
            <translation>Автозапуск задач</translation>
        </message>
        <message>
            <source>Check the version after flashing</source>
            <translation>Проверять версию после прошивки</translation>
        </message>
    </context>
    <context>
        <name>dynwidgets::controller</name>
        <message>
            <source>Missing widget type</source>
            <translation>Не указан тип элемента</translation>
        </message>
        <message>
            <source>Unknown widget type: %1</source>
            <translation>Неизвестный тип элемента: %1</translation>
        </message>
        <message>
            <source>Widget %1 already exists</source>
            <translation>Элемент %1 уже существует</translation>
        </message>
        <message>
            <source>No window to hold the widget</source>
            <translation>Нет окна для размещения элемента</translation>
        </message>
        <message>
            <source>Widget not found: %1</source>
            <translation>Элемент не найден: %1</translation>
        </message>
    </context>
    <context>
        <name>edit_script</name>
        <message>
            <source>Script editing — %1</source>
            <translation>Редактирование сценария — %1</translation>
        </message>
        <message>
            <source>Script file:</source>
            <translation>Файл сценария:</translation>
        </message>
        <message>
            <source>Script:</source>
            <translation>Сценарий:</translation>
        </message>
    </context>
    <context>
        <name>error_codes</name>
        <message>
            <source>Connection error</source>
            <translation>Ошибка соединения</translation>
        </message>
        <message>
            <source>Malformed response data</source>
            <translation>Повреждённые данные ответа</translation>
        </message>
        <message>
            <source>General server error</source>
            <translation>Общая ошибка сервера</translation>
        </message>
        <message>
            <source>Can't confirm the device firmware upgrade to the service</source>
            <translation>Не удалось подтвердить службе обновление прошивки устройства</translation>
        </message>
        <message>
            <source>Unknown error %1</source>
            <translation>Неизвестная ошибка %1</translation>
        </message>
    </context>
    <context>
        <name>event::handler</name>
        <message>
            <source>args: "%1", type: "%2", value: "%3"</source>
            <translation>аргументы: "%1", тип: "%2", значение: "%3"</translation>
        </message>
    </context>
    <context>
        <name>file_filters</name>
        <message>
            <source>All supported scripts</source>
            <translation>Все поддерживаемые сценарии</translation>
        </message>
        <message>
            <source>Orvane scripts</source>
            <translation>Сценарии Orvane</translation>
        </message>
        <message>
            <source>Lua scripts</source>
            <translation>Сценарии Lua</translation>
        </message>
        <message>
            <source>CSV</source>
            <translation>CSV</translation>
        </message>
        <message>
            <source>Configuration file</source>
            <translation>Файл конфигурации</translation>
        </message>
    </context>
    <context>
        <name>help</name>
        <message>
            <source>Help</source>
            <translation>Справка</translation>
        </message>
        <message>
            <source>Search...</source>
            <translation>Поиск...</translation>
        </message>
        <message>
            <source>Scripting</source>
            <translation>Скрипты</translation>
        </message>
        <message>
            <source>Built-in commands</source>
            <translation>Встроенные команды</translation>
        </message>
        <message>
            <source>Lua reference</source>
            <translation>Справка по Lua</translation>
        </message>
        <message>
            <source>Settings</source>
            <translation>Настройки</translation>
        </message>
        <message>
            <source>Loading...</source>
            <translation>Загрузка...</translation>
        </message>
        <message>
            <source>default</source>
            <translation>по умолчанию</translation>
        </message>
        <message>
            <source>disable</source>
            <translation>выключить</translation>
        </message>
        <message>
            <source>enable</source>
            <translation>включить</translation>
        </message>
        <message>
            <source>enabled</source>
            <translation>включено</translation>
        </message>
        <message>
            <source>disabled</source>
            <translation>выключено</translation>
        </message>
    </context>
    <context>
        <name>lua_runtime</name>
        <message>
            <source>Not enough parameters.</source>
            <translation>Недостаточно параметров.</translation>
        </message>
    </context>
    <context>
        <name>main</name>
        <message>
            <source>Orvane by Kelmar</source>
            <translation>Orvane от Kelmar</translation>
        </message>
        <message>
            <source>CSV file, formatted as "host,port,user,pass".</source>
            <translation>Файл CSV в формате «host,port,user,pass».</translation>
        </message>
        <message>
            <source>Batch mode, requires a CSV file to be supplied in the arguments.</source>
            <translation>Пакетный режим, требует указать файл CSV в аргументах.</translation>
        </message>
        <message>
            <source>Only fetch update status, no firmware upgrading.</source>
            <translation>Только узнать о наличии обновлений, без прошивки.</translation>
        </message>
        <message>
            <source>Force device updates.</source>
            <translation>Принудительно обновить устройства.</translation>
        </message>
        <message>
            <source>Offline mode (no external communications).</source>
            <translation>Автономный режим (без внешней связи).</translation>
        </message>
        <message>
            <source>With --batch: run this script file (OVScript, or Lua for .lua) on the devices of the optional CSV file, and quit once the script and all device tasks have ended.</source>
            <translation>Вместе с --batch: выполнить этот файл скрипта (OVScript или Lua для .lua) над устройствами необязательного CSV-файла и завершить работу, когда закончатся скрипт и все задачи устройств.</translation>
        </message>
        <message>
            <source>file</source>
            <translation>файл</translation>
        </message>
    </context>
    <context>
        <name>main_model</name>
        <message>
            <source>Device</source>
            <translation>Устройство</translation>
        </message>
        <message>
            <source>Serial</source>
            <translation>Серийный номер</translation>
        </message>
        <message>
            <source>MAC address</source>
            <translation>MAC-адрес</translation>
        </message>
        <message>
            <source>Info</source>
            <translation>Сведения</translation>
        </message>
        <message>
            <source>Operation</source>
            <translation>Операция</translation>
        </message>
        <message>
            <source>No information</source>
            <translation>Нет информации</translation>
        </message>
        <message>
            <source>Added</source>
            <translation>Добавлено</translation>
        </message>
    </context>
    <context>
        <name>main_window</name>
        <message>
            <source>Kelmar Firmware Update</source>
            <translation>Kelmar: обновление прошивок</translation>
        </message>
        <message>
            <source>Quit</source>
            <translation>Выход</translation>
        </message>
        <message>
            <source>Data import...</source>
            <translation>Импорт данных...</translation>
        </message>
        <message>
            <source>Update online</source>
            <translation>Обновить онлайн</translation>
        </message>
        <message>
            <source>Clear</source>
            <translation>Очистить</translation>
        </message>
        <message>
            <source>Add device</source>
            <translation>Добавить устройство</translation>
        </message>
        <message>
            <source>Edit properties</source>
            <translation>Изменить свойства</translation>
        </message>
        <message>
            <source>Delete device</source>
            <translation>Удалить устройство</translation>
        </message>
        <message>
            <source>About</source>
            <translation>О программе</translation>
        </message>
        <message>
            <source>Network scan</source>
            <translation>Поиск в сети</translation>
        </message>
        <message>
            <source>Check updates</source>
            <translation>Проверить обновления</translation>
        </message>
        <message>
            <source>Apply firmware pack</source>
            <translation>Применить пакет прошивок</translation>
        </message>
        <message>
            <source>Select all</source>
            <translation>Выбрать все</translation>
        </message>
        <message>
            <source>Invert selection</source>
            <translation>Инвертировать выбор</translation>
        </message>
        <message>
            <source>Select none</source>
            <translation>Снять выбор</translation>
        </message>
        <message>
            <source>Problems window</source>
            <translation>Окно проблем</translation>
        </message>
        <message>
            <source>Force update</source>
            <translation>Принудительное обновление</translation>
        </message>
        <message>
            <source>Language</source>
            <translation>Язык</translation>
        </message>
        <message>
            <source>Settings</source>
            <translation>Настройки</translation>
        </message>
        <message>
            <source>Command line...</source>
            <translation>Командная строка...</translation>
        </message>
        <message>
            <source>Data export...</source>
            <translation>Экспорт данных...</translation>
        </message>
        <message>
            <source>Help</source>
            <translation>Справка</translation>
        </message>
        <message>
            <source>Run tasks</source>
            <translation>Запустить задачи</translation>
        </message>
        <message>
            <source>Copy status</source>
            <translation>Копировать статус</translation>
        </message>
        <message>
            <source>Application</source>
            <translation>Приложение</translation>
        </message>
        <message>
            <source>Queue</source>
            <translation>Очередь</translation>
        </message>
        <message>
            <source>?</source>
            <translation>?</translation>
        </message>
        <message>
            <source>Actions</source>
            <translation>Действия</translation>
        </message>
        <message>
            <source>Options</source>
            <translation>Параметры</translation>
        </message>
        <message>
            <source>Main toolbar</source>
            <translation>Основная панель</translation>
        </message>
        <message>
            <source>Test toolbar</source>
            <translation>Тестовая панель</translation>
        </message>
        <message>
            <source>Script toolbar</source>
            <translation>Панель сценариев</translation>
        </message>
        <message>
            <source>Offline mode</source>
            <translation>Автономный режим</translation>
        </message>
        <message>
            <source>Task file selection</source>
            <translation>Выбор файла задач</translation>
        </message>
        <message>
            <source>Task file export</source>
            <translation>Экспорт файла задач</translation>
        </message>
        <message>
            <source>Export report...</source>
            <translation>Экспорт отчёта...</translation>
        </message>
        <message>
            <source>Show:</source>
            <translation>Показать:</translation>
        </message>
        <message>
            <source>All rows</source>
            <translation>Все строки</translation>
        </message>
        <message>
            <source>Failures</source>
            <translation>Ошибки</translation>
        </message>
        <message>
            <source>Running</source>
            <translation>Выполняемые</translation>
        </message>
        <message>
            <source>CSV files (*.csv)</source>
            <translation>Файлы CSV (*.csv)</translation>
        </message>
        <message>
            <source>Web pages (*.html)</source>
            <translation>Веб-страницы (*.html)</translation>
        </message>
        <message>
            <source>Report export</source>
            <translation>Экспорт отчёта</translation>
        </message>
    </context>
    <context>
        <name>plugins::core_functions</name>
        <message>
            <source>Core functions</source>
            <translation>Основные функции</translation>
        </message>
    </context>
    <context>
        <name>plugins::loader</name>
        <message>
            <source>Duplicate plugin identificator: %1</source>
            <translation>Повторяющийся идентификатор модуля: %1</translation>
        </message>
        <message>
            <source>Failed to load plugin: %1</source>
            <translation>Не удалось загрузить модуль: %1</translation>
        </message>
        <message>
            <source>Failed to interface the plugin %1</source>
            <translation>Модуль %1 не предоставляет интерфейс программы</translation>
        </message>
        <message>
            <source>Incompatible plugin version, system version %1, plugin version %2</source>
            <translation>Несовместимая версия модуля: версия системы %1, версия модуля %2</translation>
        </message>
        <message>
            <source>Plugin "%1" loaded</source>
            <translation>Модуль "%1" загружен</translation>
        </message>
        <message>
            <source>unloaded</source>
            <translation>выгружен</translation>
        </message>
        <message>
            <source>found</source>
            <translation>найден</translation>
        </message>
        <message>
            <source>failed</source>
            <translation>ошибка</translation>
        </message>
        <message>
            <source>incompatible</source>
            <translation>несовместим</translation>
        </message>
        <message>
            <source>duplicate</source>
            <translation>дубликат</translation>
        </message>
        <message>
            <source>loaded</source>
            <translation>загружен</translation>
        </message>
        <message>
            <source>ready</source>
            <translation>готов</translation>
        </message>
    </context>
    <context>
        <name>port_setup</name>
        <message>
            <source>Port selection</source>
            <translation>Выбор порта</translation>
        </message>
        <message>
            <source>Default</source>
            <translation>По умолчанию</translation>
        </message>
        <message>
            <source>Custom</source>
            <translation>Другой</translation>
        </message>
    </context>
    <context>
        <name>problem_report</name>
        <message>
            <source>Issues report</source>
            <translation>Отчёт о проблемах</translation>
        </message>
    </context>
    <context>
        <name>problems</name>
        <message>
            <source>Time</source>
            <translation>Время</translation>
        </message>
        <message>
            <source>Task</source>
            <translation>Задача</translation>
        </message>
        <message>
            <source>Endpoint</source>
            <translation>Адрес</translation>
        </message>
        <message>
            <source>Serial</source>
            <translation>Серийный номер</translation>
        </message>
        <message>
            <source>Description</source>
            <translation>Описание</translation>
        </message>
    </context>
    <context>
        <name>resource_viewer</name>
        <message>
            <source>Select resource</source>
            <translation>Выбор ресурса</translation>
        </message>
    </context>
    <context>
        <name>run_report</name>
        <message>
            <source>Device</source>
            <translation>Устройство</translation>
        </message>
        <message>
            <source>Serial</source>
            <translation>Серийный номер</translation>
        </message>
        <message>
            <source>MAC address</source>
            <translation>MAC-адрес</translation>
        </message>
        <message>
            <source>Hardware</source>
            <translation>Оборудование</translation>
        </message>
        <message>
            <source>Version before</source>
            <translation>Версия до</translation>
        </message>
        <message>
            <source>Version after</source>
            <translation>Версия после</translation>
        </message>
        <message>
            <source>Outcome</source>
            <translation>Итог</translation>
        </message>
        <message>
            <source>Started</source>
            <translation>Начало</translation>
        </message>
        <message>
            <source>Ended</source>
            <translation>Конец</translation>
        </message>
        <message>
            <source>Firmware update report</source>
            <translation>Отчёт об обновлении прошивок</translation>
        </message>
        <message numerus="yes">
            <source>Made %1, %n devices</source>
            <translation>
                <numerusform>Составлен %1, %n устройство</numerusform>
                <numerusform>Составлен %1, %n устройства</numerusform>
                <numerusform>Составлен %1, %n устройств</numerusform>
            </translation>
        </message>
    </context>
    <context>
        <name>run_summary</name>
        <message>
            <source>Done: %1, up to date: %2, failed: %3, running: %4, waiting: %5</source>
            <translation>Готово: %1, обновлять не нужно: %2, с ошибкой: %3, выполняется: %4, в очереди: %5</translation>
        </message>
    </context>
    <context>
        <name>sapi</name>
        <message>
            <source>Line %1: %2</source>
            <translation>Строка %1: %2</translation>
        </message>
        <message>
            <source>Successfully imported %1 tasks</source>
            <translation>Успешно импортировано задач: %1</translation>
        </message>
        <message>
            <source>No tasks</source>
            <translation>Нет задач</translation>
        </message>
        <message>
            <source>No selected tasks to export</source>
            <translation>Нет выбранных задач для экспорта</translation>
        </message>
        <message>
            <source>Imported %1 tasks</source>
            <translation>Импортировано задач: %1</translation>
        </message>
        <message>
            <source>Unsupported value: %1</source>
            <translation>Неподдерживаемое значение: %1</translation>
        </message>
        <message>
            <source>No audio output to play the sound</source>
            <translation>Нет аудиовыхода для воспроизведения звука</translation>
        </message>
        <message>
            <source>Unable to play the sound file %1</source>
            <translation>Не удалось воспроизвести звуковой файл %1</translation>
        </message>
        <message>
            <source>Video playback is not available in this build</source>
            <translation>Воспроизведение видео недоступно в этой сборке</translation>
        </message>
        <message>
            <source>Script widgets are not available in this build</source>
            <translation>Виджеты скриптов недоступны в этой сборке</translation>
        </message>
        <message>
            <source>Done</source>
            <translation>Готово</translation>
        </message>
        <message>
            <source>The queue is busy, unable to scan</source>
            <translation>Очередь занята, поиск невозможен</translation>
        </message>
        <message>
            <source>Missing element identifier</source>
            <translation>Не указан идентификатор элемента</translation>
        </message>
        <message>
            <source>Unknown operation: %1</source>
            <translation>Неизвестная операция: %1</translation>
        </message>
        <message>
            <source>Runtime is not initialized</source>
            <translation>Среда выполнения не инициализирована</translation>
        </message>
        <message>
            <source>Runtime initialized</source>
            <translation>Среда выполнения инициализирована</translation>
        </message>
        <message>
            <source>Unable to run Lua code %1</source>
            <translation>Не удалось выполнить код Lua %1</translation>
        </message>
        <message>
            <source>Unable to run Lua script %1</source>
            <translation>Не удалось выполнить сценарий Lua %1</translation>
        </message>
        <message>
            <source>Unable to load Lua code %1</source>
            <translation>Не удалось загрузить код Lua %1</translation>
        </message>
        <message>
            <source>Unable to load Lua script %1</source>
            <translation>Не удалось загрузить сценарий Lua %1</translation>
        </message>
        <message>
            <source>Code loaded</source>
            <translation>Код загружен</translation>
        </message>
        <message>
            <source>Script loaded</source>
            <translation>Сценарий загружен</translation>
        </message>
        <message>
            <source>Code is executing...</source>
            <translation>Код выполняется...</translation>
        </message>
        <message>
            <source>Script is executing...</source>
            <translation>Сценарий выполняется...</translation>
        </message>
    </context>
    <context>
        <name>script_action</name>
        <message>
            <source>Select icon file</source>
            <translation>Выбор файла значка</translation>
        </message>
        <message>
            <source>%1 (*.gif *.png *.jpg *.ico *.bmp *.svg)</source>
            <translation>%1 (*.gif *.png *.jpg *.ico *.bmp *.svg)</translation>
        </message>
        <message>
            <source>All images</source>
            <translation>Все изображения</translation>
        </message>
        <message>
            <source>Select script file</source>
            <translation>Выбор файла скрипта</translation>
        </message>
        <message>
            <source>%1 (*.script *.ovscript *.lua)</source>
            <translation>%1 (*.script *.ovscript *.lua)</translation>
        </message>
        <message>
            <source>All scripts</source>
            <translation>Все скрипты</translation>
        </message>
        <message>
            <source>Title:</source>
            <translation>Название:</translation>
        </message>
        <message>
            <source>Icon:</source>
            <translation>Значок:</translation>
        </message>
        <message>
            <source>Resource...</source>
            <translation>Ресурс...</translation>
        </message>
        <message>
            <source>File...</source>
            <translation>Файл...</translation>
        </message>
        <message>
            <source>Copy UUID</source>
            <translation>Копировать UUID</translation>
        </message>
        <message>
            <source>Action</source>
            <translation>Действие</translation>
        </message>
        <message>
            <source>Macro</source>
            <translation>Макрос</translation>
        </message>
        <message>
            <source>Script</source>
            <translation>Скрипт</translation>
        </message>
        <message>
            <source>Select...</source>
            <translation>Выбрать...</translation>
        </message>
    </context>
    <context>
        <name>scripting::actions_db</name>
        <message>
            <source>-- end --</source>
            <translation>-- конец --</translation>
        </message>
        <message>
            <source>-- separator --</source>
            <translation>-- разделитель --</translation>
        </message>
    </context>
    <context>
        <name>scripting::cmddb</name>
        <message>
            <source>Print software capabilities</source>
            <translation>Показать возможности программы</translation>
        </message>
        <message>
            <source>Clear output</source>
            <translation>Очистить вывод</translation>
        </message>
        <message>
            <source>Clear device list</source>
            <translation>Очистить список устройств</translation>
        </message>
        <message>
            <source>Scan for devices</source>
            <translation>Найти устройства</translation>
        </message>
        <message>
            <source>Print software version</source>
            <translation>Показать версию программы</translation>
        </message>
        <message>
            <source>file name</source>
            <translation>имя файла</translation>
        </message>
        <message>
            <source>host</source>
            <translation>узел</translation>
        </message>
        <message>
            <source>identifier</source>
            <translation>идентификатор</translation>
        </message>
        <message>
            <source>line</source>
            <translation>строка</translation>
        </message>
        <message>
            <source>list</source>
            <translation>список</translation>
        </message>
        <message>
            <source>password</source>
            <translation>пароль</translation>
        </message>
        <message>
            <source>port</source>
            <translation>порт</translation>
        </message>
        <message>
            <source>subnet</source>
            <translation>подсеть</translation>
        </message>
        <message>
            <source>type</source>
            <translation>тип</translation>
        </message>
        <message>
            <source>URL</source>
            <translation>URL</translation>
        </message>
        <message>
            <source>user</source>
            <translation>пользователь</translation>
        </message>
        <message>
            <source>value</source>
            <translation>значение</translation>
        </message>
    </context>
    <context>
        <name>scripting::macro_recorder</name>
        <message>
            <source>Already recording</source>
            <translation>Запись уже идёт</translation>
        </message>
        <message>
            <source>Empty name is not allowed</source>
            <translation>Пустое имя недопустимо</translation>
        </message>
        <message>
            <source>Name already exists</source>
            <translation>Такое имя уже есть</translation>
        </message>
        <message>
            <source>No active recording</source>
            <translation>Запись не ведётся</translation>
        </message>
        <message>
            <source>Macro already running</source>
            <translation>Макрос уже выполняется</translation>
        </message>
        <message>
            <source>No such recording</source>
            <translation>Нет такой записи</translation>
        </message>
        <message>
            <source>Can't remove while recording</source>
            <translation>Нельзя удалить во время записи</translation>
        </message>
    </context>
    <context>
        <name>sdk::device_library</name>
        <message>
            <source>not found in %1; %2</source>
            <translation>не найдена в %1; %2</translation>
        </message>
        <message>
            <source>Cannot resolve symbol "%1" in %2</source>
            <translation>Не удаётся найти функцию «%1» в %2</translation>
        </message>
    </context>
    <context>
        <name>sdk::legacy</name>
        <message>
            <source>Error connecting to %1</source>
            <translation>Ошибка подключения к %1</translation>
        </message>
        <message>
            <source>Incorrect login or password</source>
            <translation>Неверный логин или пароль</translation>
        </message>
        <message>
            <source>Can't login</source>
            <translation>Не удалось войти</translation>
        </message>
        <message>
            <source> when connecting to %1</source>
            <translation> при подключении к %1</translation>
        </message>
        <message>
            <source>Error requesting system data</source>
            <translation>Ошибка запроса системных данных</translation>
        </message>
        <message>
            <source>Can't change the device's address</source>
            <translation>Не удалось сменить адрес устройства</translation>
        </message>
        <message>
            <source>Can't change the device's port</source>
            <translation>Не удалось сменить порт устройства</translation>
        </message>
        <message>
            <source>Error changing the subnet mask</source>
            <translation>Ошибка смены маски подсети</translation>
        </message>
        <message>
            <source>Unknown device transfer policy: %1</source>
            <translation>Неизвестная политика передачи устройства: %1</translation>
        </message>
        <message>
            <source>Error requesting current configuration</source>
            <translation>Ошибка запроса текущей конфигурации</translation>
        </message>
        <message>
            <source>Error setting the transfer policy</source>
            <translation>Ошибка установки политики передачи</translation>
        </message>
        <message>
            <source>Error setting DHCP</source>
            <translation>Ошибка настройки DHCP</translation>
        </message>
        <message>
            <source>Can't fix the device</source>
            <translation>Не удалось исправить устройство</translation>
        </message>
        <message>
            <source>Error importing configuration</source>
            <translation>Ошибка импорта конфигурации</translation>
        </message>
        <message>
            <source>Unable to reboot the device</source>
            <translation>Невозможно перезагрузить устройство</translation>
        </message>
        <message>
            <source>Unable to reset device configuration</source>
            <translation>Невозможно сбросить конфигурацию устройства</translation>
        </message>
        <message>
            <source>Unknown device language: %1</source>
            <translation>Неизвестный язык устройства: %1</translation>
        </message>
        <message>
            <source>Error setting the language</source>
            <translation>Ошибка установки языка</translation>
        </message>
        <message>
            <source>Awaiting, %1s / %2s</source>
            <translation>Ожидание, %1 с / %2 с</translation>
        </message>
        <message>
            <source>Device is gone</source>
            <translation>Устройство пропало</translation>
        </message>
        <message>
            <source>Error opening firmware file</source>
            <translation>Ошибка открытия файла прошивки</translation>
        </message>
    </context>
    <context>
        <name>sdk::prototype</name>
        <message>
            <source>Unknown SDK type: %1</source>
            <translation>Неизвестный тип SDK: %1</translation>
        </message>
        <message>
            <source>Temporaty file validation: size mismatch: expected %1, got %2</source>
            <translation>Проверка временного файла: размер не совпадает: ожидалось %1, получено %2</translation>
        </message>
        <message>
            <source>Temporary file validation: data mismatch</source>
            <translation>Проверка временного файла: данные не совпадают</translation>
        </message>
        <message>
            <source>Temporary file access: file not set</source>
            <translation>Доступ к временному файлу: файл не задан</translation>
        </message>
        <message>
            <source>Device library %1 can't be used: %2</source>
            <translation>Библиотека устройств %1 недоступна: %2</translation>
        </message>
    </context>
    <context>
        <name>settings</name>
        <message>
            <source>Use hardware revisions:</source>
            <translation>Учитывать ревизии оборудования:</translation>
        </message>
        <message>
            <source>Firmware pack functionality:</source>
            <translation>Функциональность пакетов прошивок:</translation>
        </message>
        <message>
            <source>Device address display:</source>
            <translation>Отображение адреса устройства:</translation>
        </message>
        <message>
            <source>Show only IP-address</source>
            <translation>Только IP-адрес</translation>
        </message>
        <message>
            <source>Encrypt exported passwords:</source>
            <translation>Шифровать экспортируемые пароли:</translation>
        </message>
        <message>
            <source>Limit concurrent tasks:
0 — no limit</source>
            <translation>Одновременных задач не более:
0 — без ограничения</translation>
        </message>
        <message>
            <source>No limit</source>
            <translation>Без ограничения</translation>
        </message>
        <message>
            <source> task(s)</source>
            <translation> задач(и)</translation>
        </message>
        <message>
            <source>Functionality fallback</source>
            <translation>Смена функциональности</translation>
        </message>
        <message>
            <source>Functionality switch:</source>
            <translation>Переключение функциональности:</translation>
        </message>
        <message>
            <source>Never</source>
            <translation>Никогда</translation>
        </message>
        <message>
            <source>Ask once</source>
            <translation>Спросить один раз</translation>
        </message>
        <message>
            <source>Always ask</source>
            <translation>Всегда спрашивать</translation>
        </message>
    </context>
    <context>
        <name>settings::window</name>
        <message>
            <source>None</source>
            <translation>Ничего</translation>
        </message>
        <message>
            <source>Edit</source>
            <translation>Изменить</translation>
        </message>
        <message>
            <source>Run task</source>
            <translation>Запустить задачи</translation>
        </message>
        <message>
            <source>Check updates</source>
            <translation>Проверить обновления</translation>
        </message>
        <message>
            <source>Settings</source>
            <translation>Настройки</translation>
        </message>
        <message>
            <source>Editing</source>
            <translation>Правка</translation>
        </message>
        <message>
            <source>Customize toolbar</source>
            <translation>Панель инструментов</translation>
        </message>
        <message>
            <source>New action...</source>
            <translation>Новое действие...</translation>
        </message>
        <message>
            <source>Edit action...</source>
            <translation>Изменить действие...</translation>
        </message>
        <message>
            <source>Delete action...</source>
            <translation>Удалить действие...</translation>
        </message>
        <message>
            <source>Icon size:</source>
            <translation>Размер значков:</translation>
        </message>
        <message>
            <source>Available commands:</source>
            <translation>Доступные команды:</translation>
        </message>
        <message>
            <source>Toolbar:</source>
            <translation>Панель:</translation>
        </message>
        <message>
            <source>Add</source>
            <translation>Добавить</translation>
        </message>
        <message>
            <source>Add separator</source>
            <translation>Добавить разделитель</translation>
        </message>
        <message>
            <source>Remove</source>
            <translation>Убрать</translation>
        </message>
        <message>
            <source>Move up</source>
            <translation>Выше</translation>
        </message>
        <message>
            <source>Move down</source>
            <translation>Ниже</translation>
        </message>
        <message>
            <source>Run these scripts at start-up</source>
            <translation>Запускать эти скрипты при старте</translation>
        </message>
        <message>
            <source>Add...</source>
            <translation>Добавить...</translation>
        </message>
        <message>
            <source>Edit...</source>
            <translation>Изменить...</translation>
        </message>
        <message>
            <source>Delete</source>
            <translation>Удалить</translation>
        </message>
        <message>
            <source>Up</source>
            <translation>Выше</translation>
        </message>
        <message>
            <source>Down</source>
            <translation>Ниже</translation>
        </message>
        <message>
            <source>Task double click</source>
            <translation>Двойной щелчок по задаче</translation>
        </message>
        <message>
            <source>Common</source>
            <translation>Общий</translation>
        </message>
        <message>
            <source>Individual</source>
            <translation>Раздельный</translation>
        </message>
        <message>
            <source>Row:</source>
            <translation>Строка:</translation>
        </message>
        <message>
            <source>Address:</source>
            <translation>Адрес:</translation>
        </message>
        <message>
            <source>Status:</source>
            <translation>Состояние:</translation>
        </message>
        <message>
            <source>Execute commands on click:</source>
            <translation>Выполнять команды по щелчку:</translation>
        </message>
        <message>
            <source>Help language:</source>
            <translation>Язык справки:</translation>
        </message>
        <message>
            <source>Default</source>
            <translation>По умолчанию</translation>
        </message>
        <message>
            <source>Add action</source>
            <translation>Добавление действия</translation>
        </message>
        <message>
            <source>Can't edit</source>
            <translation>Правка невозможна</translation>
        </message>
        <message>
            <source>Select action to edit.</source>
            <translation>Выберите действие для правки.</translation>
        </message>
        <message>
            <source>Select only one action before edit.</source>
            <translation>Для правки выберите только одно действие.</translation>
        </message>
        <message>
            <source>Edit action</source>
            <translation>Правка действия</translation>
        </message>
        <message>
            <source>Delete actions</source>
            <translation>Удаление действий</translation>
        </message>
        <message>
            <source>Nothing is selected</source>
            <translation>Ничего не выбрано</translation>
        </message>
        <message>
            <source>Delete this actions (%1)?</source>
            <translation>Удалить эти действия (%1)?</translation>
        </message>
        <message>
            <source>Disable</source>
            <translation>Выключить</translation>
        </message>
        <message>
            <source>Enable</source>
            <translation>Включить</translation>
        </message>
        <message>
            <source>Select script files</source>
            <translation>Выбор файлов скриптов</translation>
        </message>
        <message>
            <source>Access error</source>
            <translation>Ошибка доступа</translation>
        </message>
        <message>
            <source>Can't open the file "%1".</source>
            <translation>Не удаётся открыть файл «%1».</translation>
        </message>
        <message>
            <source>Deleting scripts</source>
            <translation>Удаление скриптов</translation>
        </message>
        <message>
            <source>Remove selected scripts?</source>
            <translation>Убрать выбранные скрипты?</translation>
        </message>
    </context>
    <context>
        <name>settings_groups_model</name>
        <message>
            <source>General</source>
            <translation>Общие</translation>
        </message>
        <message>
            <source>Scripting</source>
            <translation>Скрипты</translation>
        </message>
        <message>
            <source>Autorun</source>
            <translation>Автозапуск</translation>
        </message>
        <message>
            <source>Behavior</source>
            <translation>Поведение</translation>
        </message>
        <message>
            <source>Help</source>
            <translation>Справка</translation>
        </message>
    </context>
    <context>
        <name>settings_script_autorun_model</name>
        <message>
            <source>Yes</source>
            <translation>Да</translation>
        </message>
        <message>
            <source>No</source>
            <translation>Нет</translation>
        </message>
        <message>
            <source>Lua</source>
            <translation>Lua</translation>
        </message>
        <message>
            <source>OVScript</source>
            <translation>OVScript</translation>
        </message>
        <message>
            <source>Script</source>
            <translation>Скрипт</translation>
        </message>
        <message>
            <source>Enabled</source>
            <translation>Включён</translation>
        </message>
        <message>
            <source>Type</source>
            <translation>Тип</translation>
        </message>
    </context>
    <context>
        <name>splash</name>
        <message>
            <source>Loading: %1</source>
            <translation>Загрузка: %1</translation>
        </message>
    </context>
    <context>
        <name>task_edit</name>
        <message>
            <source>Single</source>
            <translation>Одно</translation>
        </message>
        <message>
            <source>Multiple</source>
            <translation>Несколько</translation>
        </message>
        <message>
            <source>Name:</source>
            <translation>Имя:</translation>
        </message>
        <message>
            <source>Host:</source>
            <translation>Хост:</translation>
        </message>
        <message>
            <source>Add:</source>
            <translation>Добавить:</translation>
        </message>
        <message>
            <source>Port:</source>
            <translation>Порт:</translation>
        </message>
        <message>
            <source>User:</source>
            <translation>Пользователь:</translation>
        </message>
        <message>
            <source>Password:</source>
            <translation>Пароль:</translation>
        </message>
        <message>
            <source>Add task</source>
            <translation>Добавление задачи</translation>
        </message>
        <message>
            <source>Edit task</source>
            <translation>Изменение задачи</translation>
        </message>
        <message>
            <source>Encrypted</source>
            <translation>Зашифрован</translation>
        </message>
        <message>
            <source>%1 — %2</source>
            <translation>%1 — %2</translation>
        </message>
        <message>
            <source>Invalid</source>
            <translation>Неверно</translation>
        </message>
    </context>
    <context>
        <name>task_list_file</name>
        <message>
            <source>File not found</source>
            <translation>Файл не найден</translation>
        </message>
        <message>
            <source>Empty line, skipping...</source>
            <translation>Пустая строка, пропускаем...</translation>
        </message>
        <message>
            <source>Malformed line, skipping...</source>
            <translation>Неверная строка, пропускаем...</translation>
        </message>
        <message>
            <source>Address field is empty</source>
            <translation>Поле адреса пусто</translation>
        </message>
        <message>
            <source>Empty port, assuming default ("%1") value</source>
            <translation>Порт не указан, используется значение по умолчанию («%1»)</translation>
        </message>
        <message>
            <source>Empty user, assuming default ("%1") value</source>
            <translation>Пользователь не указан, используется значение по умолчанию («%1»)</translation>
        </message>
        <message>
            <source>Empty password, assuming default (no password) value</source>
            <translation>Пароль не указан, используется значение по умолчанию (без пароля)</translation>
        </message>
        <message>
            <source>A name, address, user or password can't hold a comma: the task list file couldn't keep it.</source>
            <translation>Имя, адрес, пользователь или пароль не могут содержать запятую: файл списка задач не сможет её сохранить.</translation>
        </message>
    </context>
    <context>
        <name>updater</name>
        <message>
            <source>Получен неправильный файл обновления.</source>
            <translation>Получен неправильный файл обновления.</translation>
        </message>
        <message>
            <source>Невозможно сохранить файл обновления.</source>
            <translation>Невозможно сохранить файл обновления.</translation>
        </message>
        <message>
            <source>Изменения не указаны</source>
            <translation>Изменения не указаны</translation>
        </message>
        <message>
            <source>Изменения:</source>
            <translation>Изменения:</translation>
        </message>
        <message>
            <source>Начиная со сборки %1:</source>
            <translation>Начиная со сборки %1:</translation>
        </message>
        <message>
            <source>+ ещё %1 изменений.</source>
            <translation>+ ещё %1 изменений.</translation>
        </message>
        <message>
            <source>An update of the program is being installed (%1 exists): start it again once that has finished.</source>
            <translation>Идёт установка обновления программы (есть файл %1): запустите её снова, когда установка закончится.</translation>
        </message>
        <message>
            <source>Unable to start the updater program: the new build waits in %1.</source>
            <translation>Не удалось запустить программу обновления: новая сборка ожидает в %1.</translation>
        </message>
        <message>
            <source>A new build of the program is being installed: start it again in a moment.</source>
            <translation>Устанавливается новая сборка программы: запустите её снова через несколько секунд.</translation>
        </message>
    </context>
    <context>
        <name>usage_warning</name>
        <message>
            <source>Warning</source>
            <translation>Предупреждение</translation>
        </message>
        <message>
            <source>If the device is working properly, then a firmware update is not required!

Do not turn off the power and Ethernet while updating the device!
If the device behaves unstable, if the power of the device is unstable, if the Ethernet network is unstable, do not update the firmware of the device. If the update process fails, the device will completely stop working!</source>
            <translation>Если устройство работает исправно, обновлять прошивку не требуется!

Не отключайте питание и Ethernet во время обновления устройства!
Если устройство работает нестабильно, если питание устройства нестабильно, если сеть Ethernet нестабильна, не обновляйте прошивку устройства. Если обновление завершится сбоем, устройство полностью перестанет работать!</translation>
        </message>
        <message>
            <source>Do not show this warning again</source>
            <translation>Больше не показывать это предупреждение</translation>
        </message>
    </context>
    <context>
        <name>videoplayer</name>
        <message>
            <source>Video player</source>
            <translation>Видеоплеер</translation>
        </message>
        <message>
            <source>Unknown state</source>
            <translation>Неизвестное состояние</translation>
        </message>
        <message>
            <source>No media</source>
            <translation>Нет медиа</translation>
        </message>
        <message>
            <source>Loading...</source>
            <translation>Загрузка...</translation>
        </message>
        <message>
            <source>Loaded</source>
            <translation>Загружено</translation>
        </message>
        <message>
            <source>Stalled</source>
            <translation>Ожидание данных</translation>
        </message>
        <message>
            <source>Buffering...</source>
            <translation>Буферизация...</translation>
        </message>
        <message>
            <source>Playing</source>
            <translation>Воспроизведение</translation>
        </message>
        <message>
            <source>Ended</source>
            <translation>Завершено</translation>
        </message>
        <message>
            <source>Invalid media</source>
            <translation>Недопустимый медиафайл</translation>
        </message>
        <message>
            <source>Pause</source>
            <translation>Пауза</translation>
        </message>
        <message>
            <source>Mute</source>
            <translation>Без звука</translation>
        </message>
        <message>
            <source>Autoclose</source>
            <translation>Автозакрытие</translation>
        </message>
    </context>
</TS>