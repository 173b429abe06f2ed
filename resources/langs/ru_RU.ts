<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
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
    </context>
</TS>